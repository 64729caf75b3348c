#pragma once

#include <curl/curl.h>

#include <string>

// What the libcurl handler logs when a transfer fails.
inline std::string ErrorLine(CURLcode code, long httpCode, const std::string& url)
{
    return std::string("curl_easy_perform() failed: '") + curl_easy_strerror(code) +
           "', http-code: " + std::to_string(httpCode) + " accessing " + url;
}
