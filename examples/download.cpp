// download URL: downloads into memory and prints what arrived. Exits with 0 if all of it did.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>

#include <future>
#include <iostream>
#include <string>

using namespace VORTAN_MW;

namespace {

bool Download(const std::string& url, ITransferHandler::Bytes& body)
{
    //! [request]
    std::promise<bool> succeeded;  // like body, older than the agent, and so outlives it
    const auto agent = AsyncTransferAgentManager::Create();

    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = url;
    request->handlerFactory = std::make_unique<CurlEasyHandlerFactory>();
    request->dataCallback = [&](std::unique_ptr<ITransferHandler::Bytes> bytes, void*) {
        if (bytes) {
            body = std::move(*bytes);
        }
    };
    request->completeCallback = [&](ITransferHandler::Result result, void*) {
        succeeded.set_value(result.success);
    };
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    //! [request]
    //! [wait]
    return handle != ITransferAgentManager::InvalidHandle && succeeded.get_future().get();
    //! [wait]
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "download URL\n";
        return 2;
    }
    ITransferHandler::Bytes body;
    const bool succeeded = Download(argv[1], body);
    std::cout.write(reinterpret_cast<const char*>(body.data()),
                    static_cast<std::streamsize>(body.size()));
    return succeeded && std::cout.flush() ? 0 : 1;
}
