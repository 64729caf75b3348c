// download_to_file URL FILE: downloads into a file and shows how much has arrived; Ctrl-C cancels.
// FILE is whole, or as it was. What arrives is kept beside it, in FILE.part, until FILE is whole:
// the next run goes on with it. Exits with 0 if FILE is whole, with 130 if it was cancelled, and
// otherwise prints why it failed.

#include <FileSink.h>
#include <TransferQueue.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <exception>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>

using namespace VORTAN_MW;

namespace {

std::atomic<bool> interrupted{false};

//! [observer]
// Shows how much has arrived, and keeps the outcome for the main thread.
class Watch : public KIT::ITransferQueueObserver
{
public:
    void OnEvent(KIT::Ticket, const KIT::TransferEvent& event) override
    {
        if (event.GetKind() == KIT::TransferEvent::Kind::Progress) {
            std::cerr << '\r' << event.GetBytesDelivered() << " bytes" << std::flush;
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

KIT::TransferOutcome Download(const char* url, const char* path)
{
    //! [request]
    KIT::TransferPolicy policy;
    policy.SetSchemes({"http", "https"});
    const auto session = std::make_shared<KIT::HttpSession>(policy);
    const auto watch = std::make_shared<Watch>();
    KIT::TransferQueue queue(session, watch);

    auto request = std::make_unique<KIT::TransferQueue::TransferConfiguration>();
    request->url = url;
    request->handlerFactory = session->MakeFactory();
    KIT::FileSink(path).AttachTo(*request);
    //! [request]
    //! [cancel]
    std::future<KIT::TransferOutcome> outcome = watch->Outcome();
    const KIT::Ticket ticket = queue.Add(std::move(request));
    while (outcome.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
        if (interrupted) {
            queue.Cancel(ticket);  // the outcome follows
        }
    }
    return outcome.get();
    //! [cancel]
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "download_to_file URL FILE\n";
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = true; });
    try {
        const KIT::TransferOutcome outcome = Download(argv[1], argv[2]);
        if (outcome.GetCategory() == KIT::Category::Success) {
            std::cerr << '\r' << std::ifstream(argv[2], std::ios::ate).tellg() << " bytes\n";
            return 0;
        }
        std::cerr << '\n' << outcome.GetSentence() << '\n';
        return outcome.GetCategory() == KIT::Category::Cancelled ? 130 : 1;
    } catch (const std::exception& error) {  // for example, FILE is a folder
        std::cerr << error.what() << '\n';
        return 1;
    }
}
