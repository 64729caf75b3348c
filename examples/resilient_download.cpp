// resilient_download URL: prints a download that is resumed where its connection broke off, gives
// up on a silent server, and ends at once on Ctrl-C. Exits with 0 if all of it arrived, with 130 if
// it was cancelled.

#include <AsyncTransferAgentManager.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <memory>

#include "ResilientHandler.h"

using namespace VORTAN_MW;

namespace {

std::atomic<bool> interrupted{false};

bool IsOver(const std::future<bool>& future, std::chrono::milliseconds patience)
{
    return future.wait_for(patience) == std::future_status::ready;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "resilient_download URL\n";
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = true; });
    std::promise<bool> over;
    auto agent = AsyncTransferAgentManager::Create();

    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = argv[1];
    //! [request]
    ResilientLimits limits;
    limits.silence = std::chrono::seconds(10);
    request->handlerFactory = std::make_unique<ResilientHandlerFactory>(limits);
    //! [request]
    request->segmented = true;
    request->dataCallback = [](const std::unique_ptr<ITransferHandler::Bytes>& chunk, void*) {
        if (chunk) {
            std::cout.write(reinterpret_cast<const char*>(chunk->data()),
                            static_cast<std::streamsize>(chunk->size()));
            std::cout.flush();
        }
    };
    request->completeCallback = [&](const ITransferHandler::Result& result, void*) {
        over.set_value(result.success);
    };
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    if (handle == ITransferAgentManager::InvalidHandle) {
        return 1;
    }
    std::future<bool> succeeded = over.get_future();
    while (!interrupted && !IsOver(succeeded, std::chrono::milliseconds(50))) {
    }
    //! [cancel]
    agent->CancelTransfer(handle);  // true if it was still in progress
    agent.reset();                  // does not have to wait for the server
    //! [cancel]
    if (!IsOver(succeeded, std::chrono::milliseconds(0))) {
        return 130;
    }
    return succeeded.get() && std::cout ? 0 : 1;
}
