// Whom a transfer over TLS trusts, and what it costs to find out.

#include <curl/curl.h>
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstdio>
#include <cstring>

#include "ErrorLine.h"
#include "SecurityTest.h"
#include "TrustedAuthority.h"

namespace {

// Watches fopen, by which OpenSSL reads authorities.
struct OpenedFiles
{
    std::string watched;  // count what is opened below this path
    std::string instead;  // open this in the place of the system's bundle
    int count = 0;
};

OpenedFiles& Opened()
{
    static OpenedFiles files;
    return files;
}

const char* SystemBundle()
{
    return curl_version_info(CURLVERSION_NOW)->cainfo;
}

// Counts the files below a path that are opened while it lives.
class FileCounter
{
public:
    explicit FileCounter(const std::string& path)
    {
        Opened().watched = path;
        Opened().count = 0;
    }
    FileCounter(const FileCounter&) = delete;
    FileCounter& operator=(const FileCounter&) = delete;
    ~FileCounter() { Opened().watched.clear(); }

    int Count() const { return Opened().count; }
};

// While it lives, the system's bundle of authorities is this file.
class SystemAuthorities
{
public:
    explicit SystemAuthorities(const std::string& file) { Opened().instead = file; }
    SystemAuthorities(const SystemAuthorities&) = delete;
    SystemAuthorities& operator=(const SystemAuthorities&) = delete;
    ~SystemAuthorities() { Opened().instead.clear(); }
};

std::FILE* Open(const char* function, const char* path, const char* mode)
{
    OpenedFiles& opened = Opened();
    if (!opened.watched.empty() && std::string(path).rfind(opened.watched, 0) == 0) {
        ++opened.count;
    }
    const bool isBundle = SystemBundle() && std::strcmp(path, SystemBundle()) == 0;
    using Function = std::FILE* (*)(const char*, const char*);
    const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, function));
    return next(isBundle && !opened.instead.empty() ? opened.instead.c_str() : path, mode);
}

}  // namespace

// Under both of the names that the C library has for it; the names of these functions depend on
// how this file is compiled.
extern "C" [[gnu::visibility("default")]] std::FILE* OpenInPlaceOfFopen(
    const char* path, const char* mode) __asm__("fopen");
extern "C" [[gnu::visibility("default")]] std::FILE* OpenInPlaceOfFopen64(
    const char* path, const char* mode) __asm__("fopen64");

std::FILE* OpenInPlaceOfFopen(const char* path, const char* mode)
{
    return Open("fopen", path, mode);
}

std::FILE* OpenInPlaceOfFopen64(const char* path, const char* mode)
{
    return Open("fopen64", path, mode);
}

TEST_F(Security, TheAuthorityAndTheNameOfAServerAreVerified)
{
    const std::string unknown = Nginx().TlsUrl("/method");
    EXPECT_FALSE(Fetch(unknown).success);
    EXPECT_EQ(log.Count(ErrorLine(CURLE_PEER_FAILED_VERIFICATION, 0, unknown)), 1U);

    const TrustedAuthority authority(Nginx().Folder().Path("ca.pem"));
    EXPECT_TRUE(Fetch(unknown).success);
    const std::string misnamed = Nginx().TlsUrl("/method", "localhost");
    EXPECT_FALSE(Fetch(misnamed).success);
    EXPECT_EQ(log.Count(ErrorLine(CURLE_PEER_FAILED_VERIFICATION, 0, misnamed)), 1U);
}

TEST_F(Security, APrivateAuthorityIsAddedToTheSystems)
{
    ASSERT_NE(SystemBundle(), nullptr);
    const std::string url = Nginx().TlsUrl("/method");
    EXPECT_FALSE(Fetch(url).success);
    const SystemAuthorities authorities(Nginx().Folder().Path("ca.pem"));
    EXPECT_TRUE(Fetch(url).success);
}

TEST_F(Security, EveryHttpsRequestLoadsAllAuthoritiesAnew)
{
    const std::string url = Nginx().TlsUrl("/method");
    const FileCounter bundle(SystemBundle());
    for (int requests = 1; requests <= 3; ++requests) {
        Fetch(url);
        EXPECT_EQ(bundle.Count(), requests);
    }
}

TEST_F(Security, OfAFolderOnlyTheNeededAuthorityIsLoaded)
{
    const std::string folder = Nginx().Folder().Path("authorities");
    const TrustedAuthority authorities(folder);
    const FileCounter opened(folder);
    for (int requests = 1; requests <= 3; ++requests) {
        EXPECT_TRUE(Fetch(Nginx().TlsUrl("/method")).success);
        EXPECT_EQ(opened.Count(), requests);
    }
}
