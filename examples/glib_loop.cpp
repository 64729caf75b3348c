// glib_loop URL...: downloads in a program whose main thread runs GLib's main loop. The queue's
// calls come on that thread, so nothing needs a lock; each line says on which. Exits with 0 if all
// arrived.

#include <TransferQueue.h>
#include <glib.h>

#include <iostream>
#include <map>
#include <thread>

using namespace VORTAN_MW;

namespace {

//! [executor]
using Closure = std::function<void()>;

// Has GLib's default main loop run the closure. Any thread may call it.
void RunInMainLoop(Closure closure)
{
    const auto run = [](gpointer data) -> gboolean {
        (*static_cast<Closure*>(data))();
        return G_SOURCE_REMOVE;
    };
    const auto destroy = [](gpointer data) { delete static_cast<Closure*>(data); };
    g_idle_add_full(G_PRIORITY_DEFAULT, run, new Closure(std::move(closure)), destroy);
}
//! [executor]

class Observer : public KIT::ITransferQueueObserver
{
public:
    explicit Observer(GMainLoop* loop) : m_Loop(loop) {}

    void OnOutcome(KIT::Ticket ticket, const KIT::TransferOutcome& outcome) override
    {
        std::cout << urls[ticket] << ": " << outcome.GetSentence() << " Told on thread "
                  << std::this_thread::get_id() << ".\n";
        allSucceeded = allSucceeded && outcome.GetCategory() == KIT::Category::Success;
        urls.erase(ticket);
        if (urls.empty()) {
            g_main_loop_quit(m_Loop);
        }
    }

    std::map<KIT::Ticket, std::string> urls;  // of what has not ended
    bool allSucceeded = true;

private:
    GMainLoop* const m_Loop;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::cerr << "glib_loop URL...\n";
        return 2;
    }
    std::cout << "The loop is on thread " << std::this_thread::get_id() << ".\n";
    KIT::TransferPolicy policy;
    policy.SetSchemes({"http", "https"});
    //! [run]
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    const auto observer = std::make_shared<Observer>(loop);
    KIT::TransferQueue queue(std::make_shared<KIT::HttpSession>(policy), observer, RunInMainLoop);
    for (int i = 1; i < argc; ++i) {
        auto request = std::make_unique<KIT::TransferQueue::TransferConfiguration>();
        request->url = argv[i];
        observer->urls[queue.Add(std::move(request))] = argv[i];
    }
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    //! [run]
    return observer->allSucceeded ? 0 : 1;
}
