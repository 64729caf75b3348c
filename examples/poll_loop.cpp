// poll_loop URL...: downloads into memory, in a program whose main thread waits in poll(). The
// queue's calls come on that thread, so nothing needs a lock; each line says on which. Exits with 0
// if all arrived.

#include <TransferQueue.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <iostream>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

using namespace VORTAN_MW;

namespace {

//! [loop]
// Runs the closures that other threads post. Its descriptor is readable while there are any.
class Closures
{
public:
    void Post(std::function<void()> closure)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Closures.push_back(std::move(closure));
        eventfd_write(m_Descriptor, 1);
    }

    void RunAll()
    {
        std::vector<std::function<void()>> closures;
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            eventfd_t count = 0;
            eventfd_read(m_Descriptor, &count);
            closures.swap(m_Closures);
        }
        for (const auto& closure : closures) {
            closure();  // may post others
        }
    }

    int Descriptor() const { return m_Descriptor; }

private:
    const int m_Descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);  // open until the program ends
    std::mutex m_Mutex;
    std::vector<std::function<void()>> m_Closures;
};
//! [loop]

struct Observer : KIT::ITransferQueueObserver
{
    void OnOutcome(KIT::Ticket ticket, const KIT::TransferOutcome& outcome) override
    {
        std::cout << urls[ticket] << ": " << outcome.GetSentence() << " Told on thread "
                  << std::this_thread::get_id() << ".\n";
        allSucceeded = allSucceeded && outcome.GetCategory() == KIT::Category::Success;
        urls.erase(ticket);
    }

    std::map<KIT::Ticket, std::string> urls;  // of what has not ended
    bool allSucceeded = true;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::cerr << "poll_loop URL...\n";
        return 2;
    }
    std::cout << "The loop is on thread " << std::this_thread::get_id() << ".\n";
    KIT::TransferPolicy policy;
    policy.SetSchemes({"http", "https"});
    //! [run]
    Closures closures;  // older than the queue: outlives it
    const auto observer = std::make_shared<Observer>();
    KIT::TransferQueue queue(std::make_shared<KIT::HttpSession>(policy), observer,
                             [&](const auto& closure) { closures.Post(closure); });
    for (int i = 1; i < argc; ++i) {
        auto request = std::make_unique<KIT::TransferQueue::TransferConfiguration>();
        request->url = argv[i];
        observer->urls[queue.Add(std::move(request))] = argv[i];
    }
    while (!observer->urls.empty()) {
        pollfd waits[] = {{closures.Descriptor(), POLLIN, 0}};  // and the program's own
        poll(waits, 1, -1);
        closures.RunAll();
    }
    //! [run]
    return observer->allSucceeded ? 0 : 1;
}
