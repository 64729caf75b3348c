// This library, with its libcurl handler.

#include <CurlEasyHandlerFactory.h>

#include <array>
#include <utility>

#include "AgentClient.h"
#include "Peer.h"
#include "TrustedAuthority.h"

namespace {

using VORTAN_MW::CurlEasyHandlerFactory;
using Mode = AgentClient::Mode;

void Finish(AgentClient::Transfer& transfer)
{
    if (transfer.Joinable() && !transfer.Join()) {
        throw std::runtime_error("The transfer failed");
    }
}

class Agent : public Peer
{
public:
    explicit Agent(const std::string& authorities) : m_Authority(authorities) {}

    std::size_t Stream(const std::string& url) override { return m_Get(url, Mode::Segmented); }

    std::size_t Fetch(const std::string& url) override { return m_Get(url, Mode::Plain); }

    std::size_t FetchMany(const std::string& url, std::size_t count) override
    {
        std::array<AgentClient::Transfer, 4> underWay;
        for (std::size_t number = 0; number < count; ++number) {
            auto& slot = underWay[number % underWay.size()];
            Finish(slot);
            slot = m_Client.Start(url, std::make_unique<CurlEasyHandlerFactory>(), Mode::Plain);
        }
        for (auto& slot : underWay) {
            Finish(slot);
        }
        return m_Client.TakeReceived();
    }

    std::size_t Upload(const std::string& url, std::string body) override
    {
        const std::size_t size = body.size();
        auto ended =
            m_Client.Upload(url, std::make_unique<CurlEasyHandlerFactory>(), std::move(body));
        Finish(ended);
        return size;
    }

private:
    std::size_t m_Get(const std::string& url, Mode mode)
    {
        auto ended = m_Client.Start(url, std::make_unique<CurlEasyHandlerFactory>(), mode);
        Finish(ended);
        return m_Client.TakeReceived();
    }

    TrustedAuthority m_Authority;
    AgentClient m_Client;
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& authorities)
{
    return std::make_unique<Agent>(authorities);
}
