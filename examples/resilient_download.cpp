// resilient_download URL: prints a download that is resumed where its connection broke off, gives
// up on a silent server, and ends at once on Ctrl-C. Exits with 0 if all of it arrived, with 130 if
// it was cancelled, and otherwise prints why it failed.

#include <AsyncTransferAgentManager.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <memory>
#include <string>

#include "ResilientHandler.h"

using namespace VORTAN_MW;

namespace {

std::atomic<bool> interrupted{false};

// The log says more.
std::string WhyItFailed(const ITransferHandler::Result& result)
{
    const long status = result.httpCode ? *result.httpCode : 0;
    return status == 0    ? "no answer from the server"
           : status < 400 ? "it broke off, HTTP status " + std::to_string(status)
                          : "HTTP status " + std::to_string(status);
}

bool IsOver(const std::future<ITransferHandler::Result>& future, std::chrono::milliseconds patience)
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
    std::promise<ITransferHandler::Result> over;
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
    request->completeCallback = [&](ITransferHandler::Result result, void*) {
        over.set_value(std::move(result));
    };
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    if (handle == ITransferAgentManager::InvalidHandle) {
        std::cerr << "the request was refused, the log says why\n";
        return 1;
    }
    std::future<ITransferHandler::Result> future = over.get_future();
    while (!interrupted && !IsOver(future, std::chrono::milliseconds(50))) {
    }
    //! [cancel]
    agent->CancelTransfer(handle);  // true if it was still in progress
    agent.reset();                  // does not have to wait for the server
    //! [cancel]
    if (!IsOver(future, std::chrono::milliseconds(0))) {
        return 130;
    }
    const ITransferHandler::Result result = future.get();
    if (!result.success) {
        std::cerr << "the download failed: " << WhyItFailed(result) << '\n';
    }
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return result.success ? 0 : 1;
}
