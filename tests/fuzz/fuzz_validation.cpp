// Which requests the agent accepts, and what it says of those that it refuses.

#include <AsyncTransferAgentManager.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CaughtLog.h"
#include "Input.h"
#include "Require.h"

namespace {

using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;
using Configuration = ITransferHandler::Configuration;
using HttpMethod = Configuration::HttpMethod;
using Request = ITransferAgentManager::TransferConfiguration;

class IdleHandler : public ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail& /*detail*/) const override { return {}; }
};

class IdleFactory : public ITransferHandlerFactory
{
public:
    std::unique_ptr<ITransferHandler> Create() override { return std::make_unique<IdleHandler>(); }
};

// Empty, short, or long.
std::string MakeText(Input& input)
{
    const std::string piece = input.Text();
    std::string text;
    for (unsigned times = input.Byte(); times > 0; --times) {
        text += piece;
    }
    return text;
}

std::vector<std::pair<std::string, std::string>> MakePairs(Input& input)
{
    std::vector<std::pair<std::string, std::string>> pairs(input.Choose(4));
    for (auto& [name, value] : pairs) {
        name = MakeText(input);
        value = MakeText(input);
    }
    return pairs;
}

void SetDelays(Configuration& request, Input& input)
{
    if (input.Flag()) {
        request.randomDelay.emplace();
        request.randomDelay->min = input.Number<std::uint32_t>();
        request.randomDelay->max = input.Number<std::uint32_t>();
    }
    if (input.Flag()) {
        request.fixedDelay = input.Number<std::int64_t>();
    }
}

// Null for one input in eight. completions counts the calls of the complete callback.
std::unique_ptr<Request> MakeRequest(Input& input, int& completions)
{
    if (input.Choose(8) == 7) {
        return nullptr;
    }
    auto request = std::make_unique<Request>();
    request->method = static_cast<HttpMethod>(input.Choose(6));
    if (input.Flag()) {
        request->method = static_cast<HttpMethod>(input.Number<std::uint32_t>());
    }
    request->httpVersion = static_cast<Configuration::HttpVersion>(input.Choose(6));
    if (input.Flag()) {
        request->dataCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {};
    }
    if (input.Flag()) {
        request->headerCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {};
    }
    if (input.Flag()) {
        request->completeCallback = [&](ITransferHandler::Result, void*) { ++completions; };
    }
    if (input.Flag()) {
        request->handlerFactory = std::make_unique<IdleFactory>();
    }
    request->segmented = input.Flag();
    request->url = MakeText(input);
    request->requestBody = MakeText(input);
    if (input.Flag()) {
        request->halvordConfig.emplace();
        request->halvordConfig->resource = MakeText(input);
        request->halvordConfig->queryParameters = MakePairs(input);
    }
    request->headers = MakePairs(input);
    SetDelays(*request, input);
    return request;
}

// What is wrong with the request: the first of these that applies. Empty if nothing is.
std::string FaultOf(const Request* request)
{
    if (!request) {
        return "transfer configuration is empty";
    }
    const bool post = request->method == HttpMethod::EhttpPost;
    const bool get = request->method == HttpMethod::EhttpGet;
    const bool hasBody = !request->requestBody.empty();
    const std::pair<bool, const char*> faults[] = {
        {request->halvordConfig && request->halvordConfig->resource.empty(),
         "Halvord config was given without a resource"},
        {post && !hasBody, "Request body of the HTTP post can't be empty"},
        {get && hasBody, "Request body of a HTTP GET can not contain data"},
        {request->url.empty(), "URL is empty"},
        {!request->dataCallback && !request->headerCallback,
         "neither data or header download requested"},
        {!request->handlerFactory, "Transfer Handler Factory is not set"}};
    const auto* const fault = std::find_if(std::begin(faults), std::end(faults),
                                           [](const auto& candidate) { return candidate.first; });
    return fault == std::end(faults) ? "" : fault->second;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    int completions = 0;
    std::unique_ptr<Request> request = MakeRequest(input, completions);
    const std::string fault = FaultOf(request.get());
    const bool tellsItsEnd = fault.empty() && request->completeCallback;

    const CaughtLog log;
    std::unique_ptr<ITransferAgentManager> manager = AsyncTransferAgentManager::Create();
    const std::uint64_t handle = manager->RequestTransfer(std::move(request));
    const std::vector<std::string> lines = log.SummariesOf("m_ValidateTransferConfig");
    manager.reset();  // wakes a worker that waits, and joins it

    if (fault.empty()) {
        Require(handle == 0, "a request that is in order gets the first handle");
        Require(lines.empty(), "nothing is said of a request that is in order");
    } else {
        Require(handle == ITransferAgentManager::InvalidHandle, "a faulty request is refused");
        Require(lines == std::vector<std::string>{"E m_ValidateTransferConfig: " + fault},
                "a refusal is told in one line, which names the first fault");
    }
    Require(completions == (tellsItsEnd ? 1 : 0), "an accepted request completes once");
    return 0;
}
