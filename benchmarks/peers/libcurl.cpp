// libcurl with nothing around it, and with the options that the agent's libcurl handler sets.

#include <curl/curl.h>

#include "Peer.h"
#include "Peers.h"
#include "TrustedAuthority.h"

namespace {

class Libcurl : public Peer
{
public:
    explicit Libcurl(const std::string& authorities) : m_Authority(authorities)
    {
        curl_global_init(CURL_GLOBAL_ALL);
    }

    std::size_t Stream(const std::string& url) override { return StreamWithLibcurl(url); }

    std::size_t Fetch(const std::string& url) override { return DownloadWithLibcurl(url); }

    std::size_t Upload(const std::string& url, std::string body) override
    {
        return UploadWithLibcurl(url, body);
    }

private:
    TrustedAuthority m_Authority;
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& authorities)
{
    return std::make_unique<Libcurl>(authorities);
}
