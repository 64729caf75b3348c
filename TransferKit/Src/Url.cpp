#include "Url.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "Curl.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

std::string PartOf(CURLU* url, CURLUPart part, unsigned int flags = 0)
{
    char* text = nullptr;
    const CURLUcode code = curl_url_get(url, part, &text, flags);
    if (code == CURLUE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    const CurlText owned(text);
    return code == CURLUE_OK && text ? std::string(text) : std::string();
}

bool HasPart(CURLU* url, CURLUPart part)
{
    char* text = nullptr;
    const CURLUcode code = curl_url_get(url, part, &text, 0);
    if (code == CURLUE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    const CurlText owned(text);
    return code == CURLUE_OK;
}

std::string InLowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool SetUrl(CURLU* url, const std::string& text, unsigned int flags)
{
    const CURLUcode code =
        curl_url_set(url, CURLUPART_URL, text.c_str(), flags | CURLU_NON_SUPPORT_SCHEME);
    if (code == CURLUE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    return code == CURLUE_OK;
}

UrlHandle MakeHandle()
{
    UrlHandle handle(curl_url());
    if (!handle) {
        throw std::bad_alloc();
    }
    return handle;
}

std::optional<Url> Describe(CURLU* handle, std::string text)
{
    Url url;
    url.text = std::move(text);
    url.scheme = InLowerCase(PartOf(handle, CURLUPART_SCHEME));
    url.host = InLowerCase(PartOf(handle, CURLUPART_HOST));
    url.port = PartOf(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    // Empty ones are sent, too.
    url.hasCredentials = HasPart(handle, CURLUPART_USER) || HasPart(handle, CURLUPART_PASSWORD);
    return url.text.empty() ? std::nullopt : std::optional<Url>(std::move(url));
}

}  // namespace

std::optional<Url> Url::Parse(const std::string& text)
{
    if (HasControlCharacter(text)) {  // libcurl's parser stops at a NUL
        return std::nullopt;
    }
    const UrlHandle handle = MakeHandle();
    return SetUrl(handle.get(), text, 0) ? Describe(handle.get(), text) : std::nullopt;
}

std::optional<Url> Url::Resolve(const std::string& reference) const
{
    const UrlHandle handle = MakeHandle();
    // Servers leave spaces in Location, which browsers encode.
    const unsigned int lenient = CURLU_ALLOW_SPACE | CURLU_URLENCODE;
    if (!SetUrl(handle.get(), text, 0) || !SetUrl(handle.get(), reference, lenient)) {
        return std::nullopt;
    }
    return Describe(handle.get(), PartOf(handle.get(), CURLUPART_URL));
}

bool HasControlCharacter(const std::string& text)
{
    return std::any_of(text.begin(), text.end(),
                       [](unsigned char c) { return c < 32 || c == 127; });
}

}  // namespace KIT
}  // namespace VORTAN_MW
