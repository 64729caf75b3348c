// GETs over TLS, to count their instructions under an emulator:
//
//     vortan_tls_instructions agent|libcurl|libcurl-vectors AUTHORITIES URL COUNT
//
// So many streamed GETs of the URL, one after the other, each with a handle of its own, through the
// agent's handler over libcurl or with libcurl alone on a fresh thread, once more with each chunk
// copied into a vector. AUTHORITIES is a file of
// certificate authorities to trust, or a folder of them with names by their hashes. The difference
// between two counts tells what one takes.

#include <CurlEasyHandlerFactory.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "AgentClient.h"
#include "Peers.h"
#include "TrustedAuthority.h"

namespace {

bool StreamThroughAgent(AgentClient& client, const std::string& url)
{
    auto factory = std::make_unique<VORTAN_MW::CurlEasyHandlerFactory>();
    return client.Start(url, std::move(factory), AgentClient::Mode::Segmented).Join();
}

bool StreamOnThread(const std::string& url, bool inVectors)
{
    std::size_t received = 0;
    std::thread([&] {
        received = inVectors ? StreamWithLibcurlInVectors(url) : StreamWithLibcurl(url);
    }).join();
    return received > 0;
}

}  // namespace

int main(int argc, char* argv[])
{
    if (argc != 5) {
        return EXIT_FAILURE;
    }
    const std::string contender = argv[1];
    const TrustedAuthority authority(argv[2]);
    const std::string url = argv[3];
    const std::size_t count = std::strtoul(argv[4], nullptr, 10);
    AgentClient client;
    bool success = true;
    for (std::size_t i = 0; i < count; ++i) {
        success = (contender == "agent" ? StreamThroughAgent(client, url)
                                        : StreamOnThread(url, contender == "libcurl-vectors")) &&
                  success;
    }
    return success ? EXIT_SUCCESS : EXIT_FAILURE;
}
