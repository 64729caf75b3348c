#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "EventData.h"
#include "TransferObserver.h"
#include "TransferQueue.h"

namespace VORTAN_MW {
namespace KIT {

// Who is told what happens to one ticket.
class TicketReceiver
{
public:
    TicketReceiver() = default;
    TicketReceiver(const TicketReceiver&) = delete;
    TicketReceiver& operator=(const TicketReceiver&) = delete;
    virtual ~TicketReceiver() = default;

    // ofRequest: the observer of the request's options, or null.
    virtual void OnEvent(const std::shared_ptr<ITransferObserver>& ofRequest,
                         const TransferEvent& event) = 0;
    virtual void OnOutcome(const Outcome& outcome) = 0;
};

// Runs closures one after the other through an executor, which may have several threads.
class SerialExecutor : public std::enable_shared_from_this<SerialExecutor>
{
public:
    explicit SerialExecutor(std::shared_ptr<const TransferQueue::Executor> executor)
        : m_Executor(std::move(executor))
    {}

    void Post(std::function<void()> closure);

private:
    void m_RunAll();

    const std::shared_ptr<const TransferQueue::Executor> m_Executor;
    std::mutex m_Mutex;
    std::deque<std::function<void()>> m_Closures;  // guarded by m_Mutex
    bool m_IsRunning = false;                      // guarded by m_Mutex
};

// Tells the client's observers, at once or through the executor. core marks its callbacks, and is
// kept: a closure may run after the queue, and no later queue may have the same address then.
class ObserverReceiver : public TicketReceiver
{
public:
    // executor: null to call at once.
    ObserverReceiver(std::shared_ptr<const void> core, Ticket ticket,
                     std::shared_ptr<ITransferQueueObserver> observer,
                     const std::shared_ptr<const TransferQueue::Executor>& executor);

    void OnEvent(const std::shared_ptr<ITransferObserver>& ofRequest,
                 const TransferEvent& event) override;
    void OnOutcome(const Outcome& outcome) override;

private:
    const std::shared_ptr<const void> m_Core;
    const Ticket m_Ticket;
    const std::shared_ptr<ITransferQueueObserver> m_Observer;  // null if there is none
    const std::shared_ptr<SerialExecutor> m_Serial;            // null if there is none
};

}  // namespace KIT
}  // namespace VORTAN_MW
