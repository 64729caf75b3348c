#include "TrustedAuthority.h"

#include <curl/curl.h>
#include <dlfcn.h>

namespace {

std::string& TrustedFile()
{
    static std::string file;
    return file;
}

}  // namespace

TrustedAuthority::TrustedAuthority(const std::string& file)
{
    TrustedFile() = file;
}

TrustedAuthority::~TrustedAuthority()
{
    TrustedFile().clear();
}

extern "C" CURLcode curl_easy_perform(CURL* handle)
{
    using Perform = CURLcode (*)(CURL*);
    static const auto next = reinterpret_cast<Perform>(dlsym(RTLD_NEXT, "curl_easy_perform"));
    if (!TrustedFile().empty()) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, TrustedFile().c_str());
        curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
    }
    return next(handle);
}
