// The library calls a handler and a factory of this client's, and each side reads records that the
// other one has filled: they agree on slots and layout, also if different compilers built them.

#include <AsyncTransferAgentManager.h>

#include <future>
#include <tuple>

using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;
using Bytes = ITransferHandler::Bytes;
using Configuration = ITransferHandler::Configuration;

namespace {

const long Status = 299;

// No member keeps its default.
void Fill(Configuration& it)
{
    it.url = "own:";
    it.failOnError = false;
    it.reservedFlag = true;
    it.method = Configuration::HttpMethod::EhttpPut;
    it.httpVersion = Configuration::HttpVersion::Eversion20;
    it.headers = {{"Name", "value"}};
    it.requestBody = "request";
    it.bodyParts = {{1, 2}, {3}};
    it.halvordConfig = Configuration::HalvordConfig{"resource", {{"key", "value"}}};
    it.allowSelfSignedCertificates = true;
    it.timeoutArg1 = 1;
    it.wrapperOption30 = 1030;
    it.timeoutArg2 = 2;
    it.wrapperOption20 = 1020;
    it.wrapperOption21 = 1021;
    it.wrapperOption31 = 1031;
    it.wrapperOption32 = 1032;
    it.wrapperOption27 = 1027;
    it.verbose = true;
    it.randomDelay = Configuration::RandomDelay();
    it.randomDelay->max = 7;
    it.fixedDelay = std::int64_t{1} << 40;
}

auto MembersOf(const Configuration& it)
{
    return std::tie(it.url, it.failOnError, it.reservedFlag, it.method, it.httpVersion, it.headers,
                    it.requestBody, it.bodyParts, it.halvordConfig->resource,
                    it.halvordConfig->queryParameters, it.allowSelfSignedCertificates,
                    it.timeoutArg1, it.wrapperOption30, it.timeoutArg2, it.wrapperOption20,
                    it.wrapperOption21, it.wrapperOption31, it.wrapperOption32, it.wrapperOption27,
                    it.verbose, it.randomDelay->min, it.randomDelay->max, it.fixedDelay);
}

bool ArrivedWhole(const Configuration& configuration)
{
    Configuration expected;
    Fill(expected);
    return configuration.halvordConfig && configuration.randomDelay &&
           MembersOf(configuration) == MembersOf(expected);
}

std::unique_ptr<Bytes> Chunk(std::uint8_t byte)
{
    return std::make_unique<Bytes>(1, byte);
}

class OwnHandler : public ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail& detail) const override
    {
        Result result;
        result.success = ArrivedWhole(detail) && !detail.headerBuffer && !detail.dataBuffer &&
                         detail.bodyOffset == 0 &&
                         detail.headerCallback(Chunk('h'), detail.userData) &&
                         detail.dataCallback(Chunk('b'), detail.userData);
        result.httpCode = std::make_unique<long>(Status);
        return result;
    }
};

class OwnFactory : public ITransferHandlerFactory
{
public:
    std::unique_ptr<ITransferHandler> Create() override { return std::make_unique<OwnHandler>(); }
};

struct Transfer
{
    Bytes received;
    std::promise<bool> succeeded;
};

void Append(std::unique_ptr<Bytes> chunk, void* context)
{
    if (chunk) {
        static_cast<Transfer*>(context)->received.push_back(chunk->front());
    }
}

void Complete(ITransferHandler::Result result, void* context)
{
    const bool hasStatus = result.httpCode && *result.httpCode == Status;
    static_cast<Transfer*>(context)->succeeded.set_value(result.success && hasStatus);
}

}  // namespace

bool TransfersThroughAnOwnHandler()
{
    Transfer transfer;
    const auto agent = VORTAN_MW::AsyncTransferAgentManager::Create();
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    Fill(*request);
    request->handlerFactory = std::make_unique<OwnFactory>();
    request->segmented = true;  // which leaves the waits out
    request->headerCallback = &Append;
    request->dataCallback = &Append;
    request->completeCallback = &Complete;
    request->userContext = &transfer;
    return agent->RequestTransfer(std::move(request)) != ITransferAgentManager::InvalidHandle &&
           transfer.succeeded.get_future().get() && transfer.received == Bytes{'h', 'b'};
}
