// resilient_download URL: prints a download that is tried again and goes on where its connection
// broke off, gives up on a silent server, and ends at once on Ctrl-C. Exits with 0 if all of it
// arrived, with 130 if it was cancelled, and otherwise prints why it failed.

#include <AsyncTransferAgentManager.h>
#include <HttpSession.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <memory>
#include <string>

using namespace VORTAN_MW;

namespace {

std::atomic<bool> interrupted{false};

//! [observer]
// Keeps the sentence that says how the transfer ended.
struct Watch : KIT::ITransferObserver
{
    void OnEvent(const KIT::TransferEvent& event) override
    {
        if (event.GetKind() == KIT::TransferEvent::Kind::End) {
            sentence = event.GetOutcome().GetSentence();
        }
    }

    std::string sentence;
};
//! [observer]

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "resilient_download URL\n";
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = true; });
    std::promise<bool> over;
    //! [request]
    KIT::TransferPolicy policy;  // its defaults suit a device on the Internet
    policy.SetSchemes({"http", "https"}).SetSilence(std::chrono::seconds(10));
    KIT::HttpSession session(policy);  // one for all transfers of a program
    const auto watch = std::make_shared<Watch>();

    auto agent = AsyncTransferAgentManager::Create();
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = argv[1];
    request->handlerFactory = session.MakeFactory(KIT::TransferOptions().SetObserver(watch));
    request->segmented = true;
    //! [request]
    request->dataCallback = [](const std::unique_ptr<ITransferHandler::Bytes>& chunk, void*) {
        if (chunk) {
            std::cout.write(reinterpret_cast<const char*>(chunk->data()),
                            static_cast<std::streamsize>(chunk->size()));
            std::cout.flush();
        }
    };
    request->completeCallback = [&](ITransferHandler::Result result, void*) {
        over.set_value(result.success);
    };
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    if (handle == ITransferAgentManager::InvalidHandle) {
        std::cerr << "the request was refused, the log says why\n";
        return 1;
    }
    std::future<bool> future = over.get_future();
    while (!interrupted &&
           future.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
    }
    //! [cancel]
    agent->CancelTransfer(handle);  // true if it was still in progress
    agent.reset();                  // does not have to wait for the server
    //! [cancel]
    if (future.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) {
        return 130;
    }
    const bool succeeded = future.get();
    if (!succeeded) {
        std::cerr << watch->sentence << '\n';
    }
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return succeeded ? 0 : 1;
}
