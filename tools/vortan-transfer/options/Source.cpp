#include "options/Source.h"

#include <curl/curl.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "base/Password.h"
#include "base/Text.h"
#include "base/UsageError.h"

namespace VORTAN_TRANSFER {

namespace {

constexpr std::string_view Letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view SchemeCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.";

// In lower case; empty if the text begins with none.
std::string SchemeOf(std::string_view text)
{
    const std::size_t end = text.find_first_not_of(SchemeCharacters);
    if (end == std::string_view::npos || text[end] != ':' ||
        Letters.find(text[0]) == std::string_view::npos) {
        return "";
    }
    return LowerCase(text.substr(0, end));
}

bool IsNumber(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Whether the text begins with "host:port", and not with a scheme.
bool StartsWithPort(std::string_view text)
{
    const std::string_view authority = text.substr(0, text.find_first_of("/?#"));
    const std::size_t colon = authority.find(':');
    return colon != std::string_view::npos && IsNumber(authority.substr(colon + 1));
}

// Whether the text, which has no scheme, begins like "example.org", "localhost" or "host:port".
bool StartsWithHost(std::string_view text)
{
    const std::string_view authority = text.substr(0, text.find_first_of("/?#"));
    const std::string_view host = authority.substr(0, authority.find(':'));
    const std::size_t dot = host.find('.');
    const bool isDotted = dot != std::string_view::npos && dot > 0 && host.back() != '.';
    return !host.empty() && host.find_first_not_of(SchemeCharacters) == std::string_view::npos &&
           (isDotted || host == "localhost" || StartsWithPort(text));
}

// Takes "//host" off the front and returns the host.
std::string_view TakeHost(std::string_view& rest)
{
    if (rest.substr(0, 2) != "//") {
        return {};
    }
    rest.remove_prefix(2);
    const std::string_view host = rest.substr(0, rest.find('/'));
    rest.remove_prefix(host.size());
    return host;
}

// url begins with "file:", in any case.
std::string PathOfFileUrl(std::string_view url)
{
    const std::string shown = Quoted(WithoutPassword(url));
    std::string_view rest = url.substr(url.find(':') + 1);
    const std::string_view host = TakeHost(rest);
    if (!host.empty() && LowerCase(host) != "localhost") {
        throw UsageError(shown + ": the files of another host (" +
                         Printable(WithoutPassword(host)) + ") are out of reach");
    }
    if (rest.substr(0, 1) != "/") {
        throw UsageError(shown + ": a file URL needs an absolute path");
    }
    if (rest.find_first_of("?#") != std::string_view::npos) {
        throw UsageError(shown + ": write %3F for ? and %23 for # in a file URL");
    }
    std::optional<std::string> path = PercentDecoded(rest);
    if (!path || path->find('\0') != std::string::npos) {
        throw UsageError(shown + ": invalid percent encoding");
    }
    return *std::move(path);
}

std::string_view LastSegment(std::string_view path)
{
    return path.substr(path.rfind('/') + 1);  // from 0 if there is no slash
}

std::string LastSegmentOfUrl(std::string_view url)
{
    url = url.substr(0, url.find_first_of("?#"));
    const std::size_t separator = url.find("://");
    if (separator != std::string_view::npos) {
        url.remove_prefix(separator + 3);
    }
    const std::size_t path = url.find('/');
    if (path == std::string_view::npos) {
        return "";
    }
    const std::string_view segment = LastSegment(url.substr(path));
    return PercentDecoded(segment).value_or(std::string(segment));
}

bool IsHttpUrl(const std::string& url)
{
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
    if (!parsed) {
        throw std::bad_alloc();
    }
    const std::string scheme = SchemeOf(url);
    return (scheme == "http" || scheme == "https") &&
           std::none_of(url.begin(), url.end(), IsControl) &&
           curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
}

// One side of "user:password", which must not hold what HTTP cannot send.
std::string DecodedCredential(std::string_view encoded, bool isUser, const std::string& shown)
{
    std::optional<std::string> text = PercentDecoded(encoded);
    if (!text) {
        throw UsageError(shown + ": invalid percent encoding before the @");
    }
    if (std::any_of(text->begin(), text->end(), IsControl)) {
        throw UsageError(shown + ": its credentials must not contain control characters");
    }
    if (isUser && text->find(':') != std::string::npos) {
        throw UsageError(shown + ": the name of its user must not contain a colon");
    }
    return *std::move(text);
}

// Takes "user:password@" out of an HTTP URL. An empty one is none.
std::optional<Credentials> TakeCredentials(std::string& url, const std::string& shown)
{
    const std::size_t begin = std::min(url.find_first_not_of('/', url.find(':') + 1), url.size());
    const std::string_view authority =
        std::string_view(url).substr(begin, url.find_first_of("/?#", begin) - begin);
    const std::size_t at = authority.rfind('@');
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view both = authority.substr(0, at);
    const std::size_t colon = std::min(both.find(':'), both.size());
    Credentials credentials{
        DecodedCredential(both.substr(0, colon), true, shown),
        DecodedCredential(both.substr(std::min(colon + 1, both.size())), false, shown)};
    url.erase(begin, at + 1);
    const bool isEmpty = credentials.user.empty() && credentials.password.empty();
    return isEmpty ? std::nullopt : std::optional(std::move(credentials));
}

// What the session of the kit transfers.
Source MakeSessionSource(const std::string& text, const Handler& handler)
{
    Source source{WithoutPassword(text), &handler, text};
    const std::string shown = Quoted(source.text);
    source.credentials = TakeCredentials(source.url, shown);
    if (!IsHttpUrl(source.url)) {
        throw UsageError(shown + ": malformed http: or https: URL");
    }
    return source;
}

bool IsFileName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name == Printable(name);
}

}  // namespace

Source MakeSource(const std::string& text, const Handler* given)
{
    if (text.empty()) {
        throw UsageError("a source is empty");
    }
    const std::string scheme = SchemeOf(text);
    if (!given && !scheme.empty() && StartsWithPort(text)) {
        throw UsageError(Quoted(text) + ": for a web address type http://" + Printable(text) +
                         ", for a file ./" + Printable(text));
    }
    const Handler& handler = given ? *given : HandlerByScheme(scheme);
    if (handler.IsSession()) {
        return MakeSessionSource(text, handler);
    }
    const bool isFileUrl = !handler.speaksHttp && scheme == "file";
    return {handler.speaksHttp ? WithoutPassword(text) : text, &handler,
            isFileUrl ? PathOfFileUrl(text) : text};
}

std::string WebAddressAdvice(const std::string& path)
{
    return StartsWithHost(path) ? "For a web address type http://" + Printable(path) : "";
}

std::optional<std::string> NameIn(const Source& source)
{
    std::string name = source.handler->speaksHttp ? LastSegmentOfUrl(source.url)
                                                  : std::string(LastSegment(source.url));
    return IsFileName(name) ? std::optional(std::move(name)) : std::nullopt;
}

std::string FileNameFor(const Source& source)
{
    std::optional<std::string> name = NameIn(source);
    if (!name) {
        throw UsageError(Quoted(source.text) +
                         ": has no name that a file can take, say where to write with -o");
    }
    return *std::move(name);
}

}  // namespace VORTAN_TRANSFER
