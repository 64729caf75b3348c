// paced_download URL MIN MAX PATIENCE: waits a random number of seconds between MIN and MAX, then
// downloads and prints. After PATIENCE seconds it shuts the agent down: a request that still waits
// is sent at once. Exits with 0 if the download arrived, and otherwise prints why not.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>

#include <chrono>
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

std::uint32_t Seconds(const char* text)
{
    return static_cast<std::uint32_t>(std::stoul(text));
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::cerr << "paced_download URL MIN MAX PATIENCE\n";
        return 2;
    }
    ITransferHandler::Bytes body;
    std::promise<ITransferHandler::Result> over;
    auto agent = AsyncTransferAgentManager::Create();

    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = argv[1];
    request->handlerFactory = std::make_unique<CurlEasyHandlerFactory>();
    //! [delay]
    request->segmented = false;  // only a plain transfer is paced
    request->randomDelay =
        ITransferHandler::Configuration::RandomDelay{Seconds(argv[2]), Seconds(argv[3])};
    //! [delay]
    request->dataCallback = [&](std::unique_ptr<ITransferHandler::Bytes> bytes, void*) {
        if (bytes) {
            body = std::move(*bytes);
        }
    };
    request->completeCallback = [&](ITransferHandler::Result result, void*) {
        over.set_value(std::move(result));
    };
    if (agent->RequestTransfer(std::move(request)) == ITransferAgentManager::InvalidHandle) {
        std::cerr << "the request was refused, the log says why\n";
        return 1;
    }

    //! [shutdown]
    std::future<ITransferHandler::Result> future = over.get_future();
    future.wait_for(std::chrono::seconds(Seconds(argv[4])));
    agent.reset();  // ends the wait, and returns when the transfer is over and no callback runs
    //! [shutdown]
    const ITransferHandler::Result result = future.get();
    if (!result.success) {
        std::cerr << "the download failed: " << WhyItFailed(result) << '\n';
    }
    std::cout.write(reinterpret_cast<const char*>(body.data()),
                    static_cast<std::streamsize>(body.size()));
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return result.success ? 0 : 1;
}
