// download_many URL...: downloads any number of URLs, four at a time, and prints a line for each,
// on standard error if it did not arrive. Exits with 0 if all arrived.

#include <TransferQueue.h>

#include <condition_variable>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

using namespace VORTAN_MW;

namespace {

//! [observer]
// Knows which download a ticket stands for, and prints how it ended. Outcomes of several tickets
// are told at the same time.
class Report : public KIT::ITransferQueueObserver
{
public:
    void OnOutcome(KIT::Ticket ticket, const KIT::TransferOutcome& outcome) override
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const Download download = m_Downloads.at(ticket);
        m_Downloads.erase(ticket);
        if (outcome.GetCategory() == KIT::Category::Success) {
            std::cout << download.url << ": " << *download.size << " bytes\n";
        } else {
            Fail(download.url, outcome.GetSentence());
        }
        m_Changed.notify_all();
    }
    //! [observer]

    //! [add]
    void Add(KIT::TransferQueue& queue, const std::string& url)
    {
        const auto size = std::make_shared<std::size_t>(0);
        auto request = std::make_unique<KIT::TransferQueue::TransferConfiguration>();
        request->url = url;
        request->segmented = true;
        request->dataCallback = [size](const std::unique_ptr<ITransferHandler::Bytes>& chunk,
                                       void*) { *size += chunk->size(); };
        // The outcome may be told before Add returns: the lock lets it wait for the ticket.
        const std::lock_guard<std::mutex> lock(m_Mutex);
        try {
            m_Downloads.emplace(queue.Add(std::move(request)), Download{url, size});
        } catch (const std::invalid_argument& error) {
            Fail(url, error.what());
        }
    }
    //! [add]

    // Waits for all outcomes. Returns whether all downloads have arrived.
    bool Finish()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Changed.wait(lock, [this] { return m_Downloads.empty(); });
        return m_AllSucceeded;
    }

private:
    struct Download
    {
        std::string url;
        std::shared_ptr<std::size_t> size;
    };

    void Fail(const std::string& url, const std::string& why)
    {
        std::cerr << url << ": " << why << '\n';
        m_AllSucceeded = false;
    }

    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::map<KIT::Ticket, Download> m_Downloads;
    bool m_AllSucceeded = true;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::cerr << "download_many URL...\n";
        return 2;
    }
    //! [queue]
    KIT::TransferPolicy policy;
    policy.SetSchemes({"http", "https"});
    const auto report = std::make_shared<Report>();
    KIT::TransferQueue queue(std::make_shared<KIT::HttpSession>(policy), report);
    for (int i = 1; i < argc; ++i) {
        report->Add(queue, argv[i]);
    }
    const bool allSucceeded = report->Finish();
    //! [queue]
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return allSucceeded ? 0 : 1;
}
