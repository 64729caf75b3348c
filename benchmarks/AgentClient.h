#pragma once

#include <ITransferAgentManager.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "ThreadEnd.h"

// Runs transfers through an agent and counts the body bytes that arrive.
class AgentClient
{
public:
    enum class Mode
    {
        Plain,
        Segmented
    };

    // A transfer that was started. Like a std::thread it is joined once, which returns only when
    // the worker is gone, so that there is room for another one.
    class Transfer
    {
    public:
        // What is known of it once its worker is gone.
        struct Ending : ThreadEnd
        {
            bool success = false;
        };

        Transfer() = default;
        explicit Transfer(std::shared_ptr<Ending> ending) : m_Ending(std::move(ending)) {}

        bool Joinable() const { return m_Ending != nullptr; }

        // Returns whether it succeeded.
        bool Join()
        {
            m_Ending->Wait();
            return std::exchange(m_Ending, nullptr)->success;
        }

    private:
        std::shared_ptr<Ending> m_Ending;
    };

    explicit AgentClient(std::unique_ptr<VORTAN_MW::ITransferAgentManager> agent);
    // Of the library's agent.
    AgentClient();

    Transfer Start(const std::string& url,
                   std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory, Mode mode);

    // The same for a plain PUT or POST of the body; what the server answers counts as received.
    using HttpMethod = VORTAN_MW::ITransferHandler::Configuration::HttpMethod;
    Transfer Upload(const std::string& url,
                    std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory, std::string body,
                    HttpMethod method = HttpMethod::EhttpPut);

    // The same for a plain transfer that is sent after a while.
    Transfer StartAfter(std::chrono::milliseconds delay,
                        std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory);

    // Body bytes received since the last call.
    std::size_t TakeReceived() { return m_Received.exchange(0); }

private:
    using Request = VORTAN_MW::ITransferAgentManager::TransferConfiguration;

    Transfer m_Start(std::unique_ptr<Request> request);

    std::atomic<std::size_t> m_Received{0};
    std::unique_ptr<VORTAN_MW::ITransferAgentManager> m_Agent;
};
