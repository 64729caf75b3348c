// Tickets of a queue, to count their instructions under an emulator:
//
//     vortan_queue_instructions WAITING PERFORMED
//
// Adds WAITING + PERFORMED requests whose handler does nothing, performs PERFORMED of them, and
// cancels the others. The difference between two counts tells what a ticket takes while so many
// wait.

#include <TransferQueue.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>

namespace {

namespace KIT = VORTAN_MW::KIT;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;

// Lets so many pass, and the others when it is opened.
class Turnstile
{
public:
    explicit Turnstile(std::size_t count) : m_Left(count) {}

    void Pass()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        if (m_Left > 0) {
            --m_Left;
            return;
        }
        m_IsReached = true;
        m_Changed.notify_all();
        m_Changed.wait(lock, [this] { return m_IsOpen; });
    }
    void WaitUntilReached()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Changed.wait(lock, [this] { return m_IsReached; });
    }
    void Open()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_IsOpen = true;
        m_Changed.notify_all();
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::size_t m_Left;
    bool m_IsReached = false;
    bool m_IsOpen = false;
};

class Handler : public ITransferHandler
{
public:
    explicit Handler(Turnstile& turnstile) : m_Turnstile(turnstile) {}

    Result DoTransfer(const TransferDetail&) const override
    {
        m_Turnstile.Pass();
        Result result;
        result.success = true;
        return result;
    }

private:
    Turnstile& m_Turnstile;
};

class Factory : public ITransferHandlerFactory
{
public:
    explicit Factory(Turnstile& turnstile) : m_Turnstile(turnstile) {}

    std::unique_ptr<ITransferHandler> Create() override
    {
        return std::make_unique<Handler>(m_Turnstile);
    }

private:
    Turnstile& m_Turnstile;
};

}  // namespace

int main(int argc, char* argv[])
{
    if (argc != 3) {
        return EXIT_FAILURE;
    }
    const std::size_t waiting = std::strtoul(argv[1], nullptr, 10);
    const std::size_t performed = std::strtoul(argv[2], nullptr, 10);
    Turnstile turnstile(performed);
    // No authority is loaded: no connection is made.
    const auto session = std::make_shared<KIT::HttpSession>(
        KIT::TransferPolicy().SetAuthorityFolder("/etc/ssl/certs"));
    KIT::TransferQueue queue(session);
    for (std::size_t i = 0; i < waiting + performed; ++i) {
        auto request = std::make_unique<KIT::TransferQueue::TransferConfiguration>();
        request->url = "nothing:";
        request->handlerFactory = std::make_unique<Factory>(turnstile);
        queue.Add(std::move(request));
    }
    turnstile.WaitUntilReached();
    queue.CancelAll();
    turnstile.Open();
    return EXIT_SUCCESS;
}
