#pragma once

#include <FileSink.h>

#include <string>

#include "KitClient.h"
#include "TemporaryFolder.h"

// What the tests of the file sink share.

// What came of a download into a file.
struct Download
{
    Received received;
    VORTAN_MW::KIT::Category category = VORTAN_MW::KIT::Category::Internal;
    std::string sentence;
    std::uint64_t delivered = 0;  // as the observer was told
    std::size_t attempts = 0;
};

Download DownloadTo(const std::string& path, VORTAN_MW::KIT::HttpSession& session,
                    const Configuration& request, const std::string& sha256 = "",
                    Way way = Way::WithoutAgent);

std::string Sha256Of(const std::string& text);

bool HasPart(const std::string& path);
std::string TextOf(const std::string& path);

// A server of one version that serves ranges as it should. It sends so many bytes of each body, and
// then ends the connection.
struct Version
{
    std::string body;
    std::string tag = "\"a\"";
};
std::string WholeOrRest(const Version& version, const std::string& range,
                        const std::string& ifRange, std::size_t most = std::string::npos);
