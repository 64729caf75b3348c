#include <curl/curl.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "QXCurl.h"
#include "SslLock.h"

namespace QXCurl {

namespace {

// Never destroyed: transfers may run until the very end of the process.
SslLock& TheSslLock()
{
    static SslLock& lock = *new SslLock;
    return lock;
}

std::string Escape(const std::string& text)
{
    const std::unique_ptr<char, decltype(&curl_free)> escaped(
        curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())), &curl_free);
    if (!escaped) {
        throw std::bad_alloc();
    }
    return escaped.get();
}

std::string BaseAddress()
{
    // Nothing here changes the environment, so that threads may read it.
    const char* const address = std::getenv("QXCURL_BASE_URL");  // NOLINT(concurrency-mt-unsafe)
    return address && *address ? address : "https://localhost";
}

}  // namespace

bool QXCurlUtility::checkIsHttps(std::string url)
{
    // libcurl, too, is content with one slash.
    const std::string scheme = "https:/";
    return curl_strnequal(url.c_str(), scheme.c_str(), scheme.size()) != 0;
}

void QXCurlUtility::makeQueryString(std::string& queryString, std::string key, std::string value)
{
    const char* const separator = queryString.empty() ? "" : "&";
    queryString += separator + Escape(key) + '=' + Escape(value);
}

std::string QXCurlUtility::makeUri(std::string resource, std::string queryString)
{
    std::string uri = BaseAddress();
    uri.erase(uri.find_last_not_of('/') + 1);
    resource.erase(0, resource.find_first_not_of('/'));
    uri += '/' + resource;
    if (!queryString.empty()) {
        uri += (resource.find('?') == std::string::npos ? '?' : '&') + queryString;
    }
    return uri;
}

bool QXCurlUtility::init_ssl_lock()
{
    TheSslLock().Take();
    return true;
}

bool QXCurlUtility::deinit_ssl_lock()
{
    return TheSslLock().Release();
}

}  // namespace QXCurl
