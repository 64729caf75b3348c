// paced_download URL MIN MAX PATIENCE: waits a random number of seconds between MIN and MAX, then
// downloads and prints. After PATIENCE seconds it shuts the agent down: a request that still waits
// is sent at once. Exits with 0 if the download arrived.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>

#include <chrono>
#include <future>
#include <iostream>
#include <string>

using namespace VORTAN_MW;

namespace {

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
    std::promise<bool> over;
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
        over.set_value(result.success);
    };
    if (agent->RequestTransfer(std::move(request)) == ITransferAgentManager::InvalidHandle) {
        return 1;
    }

    //! [shutdown]
    std::future<bool> succeeded = over.get_future();
    succeeded.wait_for(std::chrono::seconds(Seconds(argv[4])));
    agent.reset();  // ends the wait, and returns when the transfer is over and no callback runs
    //! [shutdown]
    std::cout.write(reinterpret_cast<const char*>(body.data()),
                    static_cast<std::streamsize>(body.size()));
    return succeeded.get() && std::cout.flush() ? 0 : 1;
}
