#include "base/Version.h"

#include <curl/curl.h>
#include <gnu/libc-version.h>
#include <sys/utsname.h>

#include <cstdlib>
#include <utility>

namespace VORTAN_TRANSFER {

namespace {

std::string TextOrNone(const char* text)
{
    return text && *text != '\0' ? text : "none";
}

std::string FeaturesOf(const curl_version_info_data& curl)
{
    std::string features;
    for (const char* const* name = curl.feature_names; name && *name; ++name) {
        features += (features.empty() ? "" : " ") + std::string(*name);
    }
    return features;
}

std::string System()
{
    utsname names = {};
    if (uname(&names) != 0) {
        return "unknown";
    }
    const std::string kernel = std::string(names.sysname) + " " + names.release;
    return kernel + ", " + names.machine + ", glibc " + gnu_get_libc_version();
}

}  // namespace

std::string VersionLine()
{
    return "vortan-transfer " VORTAN_TRANSFER_VERSION "\n";
}

std::string VersionDetails()
{
    const curl_version_info_data& curl = *curl_version_info(CURLVERSION_NOW);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment.
    const char* const log = std::getenv("VORTAN_DLOG");
    const std::pair<const char*, std::string> rows[] = {
        {"libcurl", TextOrNone(curl.version)},
        {"TLS", TextOrNone(curl.ssl_version)},
        {"features", FeaturesOf(curl)},
        {"authorities in a file", TextOrNone(curl.cainfo)},
        {"authorities in a folder", TextOrNone(curl.capath)},
        {"system", System()},
        {"VORTAN_DLOG", TextOrNone(log)},
    };
    std::string details;
    for (const auto& [name, value] : rows) {
        details += std::string(name) + ": " + value + "\n";
    }
    return details;
}

}  // namespace VORTAN_TRANSFER
