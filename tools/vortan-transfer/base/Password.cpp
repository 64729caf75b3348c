#include "base/Password.h"

#include <algorithm>
#include <optional>

namespace VORTAN_TRANSFER {

namespace {

constexpr std::string_view Mask = "***";

struct Range
{
    std::size_t begin;
    std::size_t end;
};

bool IsPort(std::string_view text)
{
    return text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Where the password is in a URL from its host part on. "user:pass/word@host" is no valid URL, and
// its password is no less a secret: what stands in a port's place is taken for the beginning of
// one.
std::optional<Range> FindPassword(std::string_view url)
{
    const std::string_view authority = url.substr(0, url.find_first_of("/?#"));
    const std::size_t colon = authority.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    std::size_t at = authority.rfind('@');
    if (at == std::string_view::npos && authority[0] != '[' &&
        !IsPort(authority.substr(colon + 1))) {
        at = url.rfind('@');
    }
    if (at == std::string_view::npos || at < colon) {
        return std::nullopt;
    }
    return Range{colon + 1, at};
}

// Where the host part begins: behind the scheme, if there is one, and slashes, which may be more or
// fewer than two.
std::size_t SkipScheme(std::string_view url)
{
    const std::size_t colon = url.find(":/");
    const bool hasScheme = colon < url.find_first_of("/?#@");
    const std::size_t begin = url.find_first_not_of('/', hasScheme ? colon + 1 : 0);
    return std::min(begin, url.size());
}

}  // namespace

std::string WithoutPassword(std::string_view url)
{
    const std::size_t begin = SkipScheme(url);
    const auto password = FindPassword(url.substr(begin));
    if (!password) {
        return WithoutPasswords(url);
    }
    return std::string(url.substr(0, begin + password->begin))
        .append(Mask)
        .append(WithoutPasswords(url.substr(begin + password->end)));
}

std::string WithoutPasswords(std::string_view text)
{
    constexpr std::string_view separator = "://";
    std::string shown;
    for (std::size_t at = 0; (at = text.find(separator)) != std::string_view::npos;) {
        const std::size_t begin = at + separator.size();
        shown += text.substr(0, begin);
        text.remove_prefix(begin);
        if (const auto password = FindPassword(text.substr(0, text.find_first_of(" \t\r\n")))) {
            shown.append(text.substr(0, password->begin)).append(Mask);
            text.remove_prefix(password->end);
        }
    }
    return shown.append(text);
}

}  // namespace VORTAN_TRANSFER
