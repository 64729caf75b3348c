// download URL: downloads into memory and prints what arrived. Exits with 0 if all of it did, and
// otherwise prints why not.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>

#include <future>
#include <iostream>
#include <string>

using namespace VORTAN_MW;

namespace {

// The log says more.
std::string WhyItFailed(const ITransferHandler::Result& result)
{
    const long status = result.httpCode ? *result.httpCode : 0;
    return status == 0    ? "no answer from the server"
           : status < 400 ? "it broke off, HTTP status " + std::to_string(status)
                          : "HTTP status " + std::to_string(status);
}

bool Download(const std::string& url, ITransferHandler::Bytes& body)
{
    //! [request]
    std::promise<ITransferHandler::Result> over;  // like body, older than the agent: outlives it
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
        over.set_value(std::move(result));
    };
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    //! [request]
    //! [wait]
    if (handle == ITransferAgentManager::InvalidHandle) {
        std::cerr << "the request was refused, the log says why\n";
        return false;
    }
    const ITransferHandler::Result result = over.get_future().get();
    //! [wait]
    if (!result.success) {
        std::cerr << "the download failed: " << WhyItFailed(result) << '\n';
    }
    return result.success;
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
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return succeeded ? 0 : 1;
}
