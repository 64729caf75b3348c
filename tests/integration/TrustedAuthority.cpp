#include "TrustedAuthority.h"

#include <curl/curl.h>
#include <dlfcn.h>

#include <filesystem>

namespace {

std::string& TrustedPath()
{
    static std::string path;
    return path;
}

}  // namespace

TrustedAuthority::TrustedAuthority(const std::string& path)
{
    TrustedPath() = path;
}

TrustedAuthority::~TrustedAuthority()
{
    TrustedPath().clear();
}

extern "C" CURLcode curl_easy_perform(CURL* handle)
{
    using Perform = CURLcode (*)(CURL*);
    static const auto next = reinterpret_cast<Perform>(dlsym(RTLD_NEXT, "curl_easy_perform"));
    if (!TrustedPath().empty()) {
        const char* const path = TrustedPath().c_str();
        const bool isFolder = std::filesystem::is_directory(TrustedPath());
        curl_easy_setopt(handle, CURLOPT_CAINFO, isFolder ? nullptr : path);
        curl_easy_setopt(handle, CURLOPT_CAPATH, isFolder ? path : nullptr);
    }
    return next(handle);
}
