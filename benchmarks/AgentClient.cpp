#include "AgentClient.h"

#include <AsyncTransferAgentManager.h>

#include <cstdint>
#include <utility>
#include <vector>

using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;

AgentClient::AgentClient(std::unique_ptr<ITransferAgentManager> agent) : m_Agent(std::move(agent))
{}

AgentClient::AgentClient() : AgentClient(AsyncTransferAgentManager::Create()) {}

AgentClient::Transfer AgentClient::Start(const std::string& url,
                                         std::unique_ptr<ITransferHandlerFactory> factory,
                                         Mode mode)
{
    auto request = std::make_unique<Request>();
    request->url = url;
    request->method = HttpMethod::EhttpGet;
    request->handlerFactory = std::move(factory);
    request->segmented = mode == Mode::Segmented;
    return m_Start(std::move(request));
}

AgentClient::Transfer AgentClient::Upload(const std::string& url,
                                          std::unique_ptr<ITransferHandlerFactory> factory,
                                          std::string body, HttpMethod method)
{
    auto request = std::make_unique<Request>();
    request->url = url;
    request->method = method;
    request->requestBody = std::move(body);
    request->handlerFactory = std::move(factory);
    return m_Start(std::move(request));
}

AgentClient::Transfer AgentClient::StartAfter(std::chrono::milliseconds delay,
                                              std::unique_ptr<ITransferHandlerFactory> factory)
{
    auto request = std::make_unique<Request>();
    request->url = "nowhere";
    request->fixedDelay = delay.count();
    request->handlerFactory = std::move(factory);
    return m_Start(std::move(request));
}

AgentClient::Transfer AgentClient::m_Start(std::unique_ptr<Request> request)
{
    auto ending = std::make_shared<Transfer::Ending>();
    request->dataCallback = [this](std::unique_ptr<ITransferHandler::Bytes> chunk, void*) {
        m_Received += chunk ? chunk->size() : 0;
    };
    request->completeCallback = [ending](ITransferHandler::Result result, void*) {
        ending->success = result.success;
        ThreadEnd::TellAtExit(ending);
    };
    if (m_Agent->RequestTransfer(std::move(request)) == ITransferAgentManager::InvalidHandle) {
        ending->Tell();
    }
    return Transfer(std::move(ending));
}
