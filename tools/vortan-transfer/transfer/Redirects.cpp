#include "transfer/Redirects.h"

#include <curl/curl.h>

#include <algorithm>
#include <memory>

#include "base/Password.h"
#include "base/Text.h"

namespace VORTAN_TRANSFER {

namespace {

// The URL to which a location leads, which may be relative; the location itself if it is none.
std::string Resolved(const std::string& url, const std::string& location)
{
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parser(curl_url(), curl_url_cleanup);
    char* text = nullptr;
    if (!parser ||
        curl_url_set(parser.get(), CURLUPART_URL, url.c_str(), CURLU_GUESS_SCHEME) != CURLUE_OK ||
        curl_url_set(parser.get(), CURLUPART_URL, location.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
            CURLUE_OK ||
        curl_url_get(parser.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) {
        return location;
    }
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, curl_free);
    return text;
}

// Whether a status line, "HTTP/1.1 302 Found", has a status from 300 to 399.
bool TellsOfRedirect(std::string_view statusLine)
{
    const std::size_t blank = statusLine.find(' ');
    return blank != std::string_view::npos && statusLine.substr(blank + 1, 1) == "3";
}

}  // namespace

void Redirects::Add(std::string_view lines)
{
    while (!lines.empty()) {
        const std::size_t length = std::min(lines.find('\n'), lines.size() - 1) + 1;
        m_TakeLine(lines.substr(0, length));
        lines.remove_prefix(length);
    }
}

std::string Redirects::Preface() const
{
    return m_WereAny ? "redirected to " + Printable(WithoutPassword(m_Url)) + ": " : "";
}

void Redirects::m_TakeLine(std::string_view line)
{
    constexpr std::string_view field = "location:";
    if (line.substr(0, 5) == "HTTP/") {
        m_IsRedirect = TellsOfRedirect(line);
    } else if (m_IsRedirect && LowerCase(line.substr(0, field.size())) == field) {
        line = line.substr(field.size(), line.find_last_not_of("\r\n") + 1 - field.size());
        m_Url = Resolved(m_Url, std::string(Trimmed(line)));
        m_WereAny = true;
    }
}

}  // namespace VORTAN_TRANSFER
