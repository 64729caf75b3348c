#include "TicketReceiver.h"

#include "CallbackScope.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

void TellEvent(ITransferObserver* ofRequest, ITransferQueueObserver* observer, Ticket ticket,
               const TransferEvent& event)
{
    if (ofRequest) {
        ofRequest->OnEvent(event);
    }
    if (observer && event.GetKind() != TransferEvent::Kind::End) {  // the outcome takes its place
        observer->OnEvent(ticket, event);
    }
}

// Tells an event that was copied.
class LateEvent : public ITransferObserver
{
public:
    LateEvent(ITransferObserver* ofRequest, ITransferQueueObserver* observer, Ticket ticket)
        : m_OfRequest(ofRequest), m_Observer(observer), m_Ticket(ticket)
    {}

    void OnEvent(const TransferEvent& event) override
    {
        TellEvent(m_OfRequest, m_Observer, m_Ticket, event);
    }

private:
    ITransferObserver* const m_OfRequest;
    ITransferQueueObserver* const m_Observer;
    const Ticket m_Ticket;
};

}  // namespace

void SerialExecutor::Post(std::function<void()> closure)
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Closures.push_back(std::move(closure));
        if (m_IsRunning) {
            return;
        }
        m_IsRunning = true;
    }
    (*m_Executor)([self = shared_from_this()] { self->m_RunAll(); });
}

void SerialExecutor::m_RunAll()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    while (!m_Closures.empty()) {
        {
            const std::function<void()> closure = std::move(m_Closures.front());
            m_Closures.pop_front();
            lock.unlock();
            closure();
        }
        lock.lock();
    }
    m_IsRunning = false;
}

ObserverReceiver::ObserverReceiver(std::shared_ptr<const void> core, Ticket ticket,
                                   std::shared_ptr<ITransferQueueObserver> observer,
                                   const std::shared_ptr<const TransferQueue::Executor>& executor)
    : m_Core(std::move(core)),
      m_Ticket(ticket),
      m_Observer(std::move(observer)),
      m_Serial(executor ? std::make_shared<SerialExecutor>(executor) : nullptr)
{}

void ObserverReceiver::OnEvent(const std::shared_ptr<ITransferObserver>& ofRequest,
                               const TransferEvent& event)
{
    if (!ofRequest && !m_Observer) {
        return;
    }
    if (!m_Serial) {
        TellEvent(ofRequest.get(), m_Observer.get(), m_Ticket, event);
        return;
    }
    m_Serial->Post([core = m_Core, ofRequest, observer = m_Observer, ticket = m_Ticket,
                    record = EventAccess::Copy(event)]() mutable {
        const CallbackScope scope(core.get());
        LateEvent late(ofRequest.get(), observer.get(), ticket);
        EventAccess::Report(late, record);
    });
}

void ObserverReceiver::OnOutcome(const Outcome& outcome)
{
    if (!m_Observer) {
        return;
    }
    if (!m_Serial) {
        EventAccess::Show(outcome, [this](const TransferOutcome& shown) {
            m_Observer->OnOutcome(m_Ticket, shown);
        });
        return;
    }
    m_Serial->Post([core = m_Core, observer = m_Observer, ticket = m_Ticket, outcome] {
        const CallbackScope scope(core.get());
        EventAccess::Show(
            outcome, [&](const TransferOutcome& shown) { observer->OnOutcome(ticket, shown); });
    });
}

}  // namespace KIT
}  // namespace VORTAN_MW
