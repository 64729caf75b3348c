#include "AgentClient.h"

#include <AsyncTransferAgentManager.h>

#include <cstdint>
#include <utility>
#include <vector>

using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;

AgentClient::AgentClient() : m_Agent(AsyncTransferAgentManager::Create()) {}

std::future<bool> AgentClient::Start(const std::string& url,
                                     std::unique_ptr<ITransferHandlerFactory> factory, Mode mode)
{
    auto request = std::make_unique<Request>();
    request->url = url;
    request->method = ITransferHandler::Configuration::HttpMethod::EhttpGet;
    request->handlerFactory = std::move(factory);
    request->segmented = mode == Mode::Segmented;
    return m_Start(std::move(request));
}

std::future<bool> AgentClient::Upload(const std::string& url,
                                      std::unique_ptr<ITransferHandlerFactory> factory,
                                      std::string body)
{
    auto request = std::make_unique<Request>();
    request->url = url;
    request->method = ITransferHandler::Configuration::HttpMethod::EhttpPut;
    request->requestBody = std::move(body);
    request->handlerFactory = std::move(factory);
    return m_Start(std::move(request));
}

std::future<bool> AgentClient::StartAfter(std::chrono::milliseconds delay,
                                          std::unique_ptr<ITransferHandlerFactory> factory)
{
    auto request = std::make_unique<Request>();
    request->url = "nowhere";
    request->fixedDelay = delay.count();
    request->handlerFactory = std::move(factory);
    return m_Start(std::move(request));
}

std::future<bool> AgentClient::m_Start(std::unique_ptr<Request> request)
{
    auto outcome = std::make_shared<std::promise<bool>>();
    std::future<bool> ended = outcome->get_future();
    request->dataCallback = [this](std::unique_ptr<ITransferHandler::Bytes> chunk, void*) {
        m_Received += chunk ? chunk->size() : 0;
    };
    request->completeCallback = [outcome](ITransferHandler::Result result, void*) {
        outcome->set_value_at_thread_exit(result.success);
    };
    if (m_Agent->RequestTransfer(std::move(request)) == ITransferAgentManager::InvalidHandle) {
        outcome->set_value(false);
    }
    return ended;
}
