#pragma once

#include <string>

// While it lives, libcurl trusts the certificate authorities in this file, or in this folder under
// the names that "openssl rehash" gives them, and no others. The handler trusts those of the system
// and has no option to change that; so the program puts a curl_easy_perform of its own before
// libcurl's, which sets the option and goes on to libcurl's.
class TrustedAuthority
{
public:
    explicit TrustedAuthority(const std::string& path);
    ~TrustedAuthority();
    TrustedAuthority(const TrustedAuthority&) = delete;
    TrustedAuthority& operator=(const TrustedAuthority&) = delete;
};
