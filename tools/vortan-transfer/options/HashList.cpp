#include "options/HashList.h"

#include <algorithm>

#include "base/Text.h"
#include "base/UsageError.h"
#include "options/InputFile.h"

namespace VORTAN_TRANSFER {

namespace {

constexpr std::size_t HashLength = 64;

bool IsSha256(std::string_view text)
{
    return text.size() == HashLength &&
           text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

// A line that begins with a backslash has \\, \n and \r in its name.
std::string Unescaped(std::string_view name)
{
    std::string plain;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool isEscape = name[i] == '\\' && i + 1 < name.size();
        const char c = isEscape ? name[++i] : name[i];
        plain += isEscape && c == 'n' ? '\n' : isEscape && c == 'r' ? '\r' : c;
    }
    return plain;
}

std::string BaseName(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);  // from 0 if there is no slash
}

}  // namespace

std::string ParseSha256(std::string_view text, const std::string& what)
{
    if (!IsSha256(text)) {
        throw UsageError(what + ": must be 64 hexadecimal digits, not " + Quoted(text));
    }
    return LowerCase(text);
}

HashList::HashList(const std::string& path, const std::string& option) : m_Path(path)
{
    for (const InputLine& line : ReadLines(path, option)) {
        std::string_view text = line.text;
        if (Trimmed(text).empty() || text.front() == '#') {
            continue;
        }
        const bool isEscaped = text.front() == '\\';
        text.remove_prefix(isEscaped ? 1 : 0);
        // A space or an asterisk stands before the name: read as text, or as bytes.
        const std::string_view separator =
            text.substr(0, HashLength + 2).substr(std::min(HashLength, text.size()));
        if (!IsSha256(text.substr(0, HashLength)) || (separator != "  " && separator != " *") ||
            text.size() == HashLength + 2) {
            throw UsageError(line.place + ": must be a SHA-256 hash, two spaces and a file name");
        }
        const std::string_view name = text.substr(HashLength + 2);
        m_HashOf.emplace(BaseName(isEscaped ? Unescaped(name) : std::string(name)),
                         LowerCase(text.substr(0, HashLength)));
    }
}

std::optional<std::string> HashList::Find(const std::string& name) const
{
    const auto [begin, end] = m_HashOf.equal_range(name);
    if (begin == end) {
        return std::nullopt;
    }
    for (auto other = begin; other != end; ++other) {
        if (other->second != begin->second) {
            throw UsageError(Quoted(m_Path) + ": has several hashes for " + Quoted(name));
        }
    }
    return begin->second;
}

}  // namespace VORTAN_TRANSFER
