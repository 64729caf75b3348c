// resilient_download URL: prints a download that is tried again and goes on where its connection
// broke off, gives up on a silent server, and ends at once on Ctrl-C. Each failed attempt is told
// on standard error. Exits with 0 if all of it arrived, with 130 if it was cancelled, and otherwise
// prints why it failed.

#include <TransferQueue.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <exception>
#include <future>
#include <iostream>
#include <memory>

using namespace VORTAN_MW;

namespace {

std::atomic<bool> interrupted{false};

//! [observer]
// Tells each attempt that failed, and keeps the outcome for the main thread.
class Watch : public KIT::ITransferQueueObserver
{
public:
    void OnEvent(KIT::Ticket, const KIT::TransferEvent& event) override
    {
        if (event.GetKind() == KIT::TransferEvent::Kind::Retry) {
            std::cerr << event.GetOutcome().GetSentence() << " Next attempt in "
                      << event.GetDelay().count() << " ms.\n";
        }
    }

    void OnOutcome(KIT::Ticket, const KIT::TransferOutcome& outcome) override
    {
        m_Outcome.set_value(outcome);
    }

    std::future<KIT::TransferOutcome> Outcome() { return m_Outcome.get_future(); }

private:
    std::promise<KIT::TransferOutcome> m_Outcome;
};
//! [observer]

void Print(const std::unique_ptr<ITransferHandler::Bytes>& chunk, void*)
{
    std::cout.write(reinterpret_cast<const char*>(chunk->data()),
                    static_cast<std::streamsize>(chunk->size()));
    std::cout.flush();
}

KIT::TransferOutcome Download(const char* url)
{
    //! [request]
    KIT::TransferPolicy policy;  // its defaults suit a device on the Internet
    policy.SetSchemes({"http", "https"}).SetSilence(std::chrono::seconds(10));
    const auto watch = std::make_shared<Watch>();
    KIT::TransferQueue queue(std::make_shared<KIT::HttpSession>(policy), watch);

    auto request = std::make_unique<KIT::TransferQueue::TransferConfiguration>();
    request->url = url;
    request->segmented = true;
    request->dataCallback = Print;
    queue.Add(std::move(request));
    //! [request]
    //! [cancel]
    std::future<KIT::TransferOutcome> outcome = watch->Outcome();
    while (outcome.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
        if (interrupted) {
            queue.CancelAll();  // does not have to wait for the server
        }
    }
    return outcome.get();
    //! [cancel]
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "resilient_download URL\n";
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = true; });
    try {
        const KIT::TransferOutcome outcome = Download(argv[1]);
        if (outcome.GetCategory() == KIT::Category::Cancelled) {
            return 130;
        }
        if (outcome.GetCategory() != KIT::Category::Success) {
            std::cerr << outcome.GetSentence() << '\n';
            return 1;
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return 0;
}
