// libcurl with nothing around it, and with the options that the agent's libcurl handler sets.

#include <curl/curl.h>

#include "Peer.h"
#include "Peers.h"

namespace {

class Libcurl : public Peer
{
public:
    Libcurl() { curl_global_init(CURL_GLOBAL_ALL); }

    std::size_t Stream(const std::string& url) override { return StreamWithLibcurl(url); }

    std::size_t Fetch(const std::string& url) override { return DownloadWithLibcurl(url); }

    std::size_t Upload(const std::string& url, std::string body) override
    {
        return UploadWithLibcurl(url, body);
    }
};

}  // namespace

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<Libcurl>();
}
