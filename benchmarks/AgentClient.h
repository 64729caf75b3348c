#pragma once

#include <ITransferAgentManager.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <string>

// Runs transfers through an agent and counts the body bytes that arrive.
class AgentClient
{
public:
    enum class Mode
    {
        Plain,
        Segmented
    };

    AgentClient();

    // Starts a transfer. Like a std::thread that is joined, the future becomes ready only when the
    // worker is gone, so that there is room for another one: it tells whether the transfer
    // succeeded.
    std::future<bool> Start(const std::string& url,
                            std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory, Mode mode);

    // The same for a plain PUT of the body; what the server answers counts as received.
    std::future<bool> Upload(const std::string& url,
                             std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory,
                             std::string body);

    // The same for a plain transfer that is sent after a while.
    std::future<bool> StartAfter(std::chrono::milliseconds delay,
                                 std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory);

    // Body bytes received since the last call.
    std::size_t TakeReceived() { return m_Received.exchange(0); }

private:
    using Request = VORTAN_MW::ITransferAgentManager::TransferConfiguration;

    std::future<bool> m_Start(std::unique_ptr<Request> request);

    std::atomic<std::size_t> m_Received{0};
    std::unique_ptr<VORTAN_MW::ITransferAgentManager> m_Agent;
};
