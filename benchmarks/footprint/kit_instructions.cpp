// HTTPS transfers through an agent and the transfer kit, to count their instructions under an
// emulator:
//
//     vortan_kit_instructions kept|hosts|workers|fresh COUNT AUTHORITIES URL...
//
//     kept       so many transfers of the first URL, one after the other, in one session
//     hosts      one transfer of each of so many URLs, one after the other, in one session
//     workers    so many transfers of the first URL at once, at most four, in one session
//     fresh      so many transfers of the first URL through the agent's own handler over libcurl
//
// AUTHORITIES is a file of certificate authorities to trust. The difference between two counts
// tells what one transfer takes. Without a transfer there is no session either.

#include <CurlEasyHandlerFactory.h>
#include <HttpSession.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AgentClient.h"
#include "TrustedAuthority.h"

namespace {

using VORTAN_MW::KIT::HttpSession;
using VORTAN_MW::KIT::ITransferObserver;
using VORTAN_MW::KIT::TransferEvent;
using VORTAN_MW::KIT::TransferOptions;
using VORTAN_MW::KIT::TransferPolicy;

// An emulator takes its time.
TransferPolicy PatientPolicy(const std::string& authorities)
{
    return TransferPolicy()
        .SetConnecting(std::chrono::minutes(10))
        .SetSilence(std::chrono::minutes(10))
        .SetAttempts(1)
        .SetAuthorityFile(authorities);
}

bool Fetch(AgentClient& client, const std::string& url,
           std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory)
{
    return client.Start(url, std::move(factory), AgentClient::Mode::Plain).Join();
}

bool FetchEach(AgentClient& client, HttpSession& session, const std::vector<std::string>& urls)
{
    bool success = true;
    for (const std::string& url : urls) {
        success = Fetch(client, url, session.MakeFactory()) && success;
    }
    return success;
}

bool FetchFresh(AgentClient& client, const std::vector<std::string>& urls)
{
    bool success = true;
    for (const std::string& url : urls) {
        auto factory = std::make_unique<VORTAN_MW::CurlEasyHandlerFactory>();
        success = Fetch(client, url, std::move(factory)) && success;
    }
    return success;
}

// Holds each transfer at its header until all have come that far: none uses another's connection.
class Meeting : public ITransferObserver
{
public:
    explicit Meeting(std::size_t count) : m_Awaited(count) {}

    void OnEvent(const TransferEvent& event) override
    {
        if (event.GetKind() != TransferEvent::Kind::Header) {
            return;
        }
        std::unique_lock<std::mutex> lock(m_Mutex);
        --m_Awaited;
        m_Changed.notify_all();
        m_Changed.wait(lock, [this] { return m_Awaited == 0; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::size_t m_Awaited;
};

bool FetchAtOnce(AgentClient& client, HttpSession& session, const std::vector<std::string>& urls)
{
    const auto options = TransferOptions().SetObserver(std::make_shared<Meeting>(urls.size()));
    std::vector<AgentClient::Transfer> transfers;
    for (const std::string& url : urls) {
        transfers.push_back(
            client.Start(url, session.MakeFactory(options), AgentClient::Mode::Plain));
    }
    bool success = true;
    for (AgentClient::Transfer& transfer : transfers) {
        success = transfer.Join() && success;
    }
    return success;
}

bool Perform(const std::string& work, const std::string& authorities,
             const std::vector<std::string>& urls)
{
    AgentClient client;
    if (work == "fresh") {
        const TrustedAuthority authority(authorities);
        return FetchFresh(client, urls);
    }
    HttpSession session(PatientPolicy(authorities));
    return work == "workers" ? FetchAtOnce(client, session, urls)
                             : FetchEach(client, session, urls);
}

}  // namespace

int main(int argc, char* argv[])
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() < 4) {
        return EXIT_FAILURE;
    }
    const std::size_t count = std::strtoul(arguments[1].c_str(), nullptr, 10);
    std::vector<std::string> urls(arguments.begin() + 3, arguments.end());
    if (arguments[0] != "hosts") {
        urls.resize(1);
    }
    urls.resize(count, urls.front());
    return urls.empty() || Perform(arguments[0], arguments[2], urls) ? EXIT_SUCCESS : EXIT_FAILURE;
}
