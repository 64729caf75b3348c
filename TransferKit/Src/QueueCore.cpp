#include "QueueCore.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace VORTAN_MW {
namespace KIT {

namespace {

// So many attempts to start a worker are made for a ticket. The end of another transfer may be what
// it takes, but there need not be any.
constexpr std::uint32_t MostStarts = 100;

}  // namespace

struct QueueCore::Entry : ListedEntry
{
    Entry(Ticket itsTicket, Priority itsPriority, std::shared_ptr<QueuedWork> itsWork)
        : ticket(itsTicket), priority(itsPriority), work(std::move(itsWork))
    {
        Timers timers;
        timerNode = timers.extract(timers.emplace(Clock::time_point(), this));
    }

    const Ticket ticket;
    const Priority priority;
    const std::shared_ptr<QueuedWork> work;
    State state = State::Waiting;
    bool isStopped = false;
    bool hasBegun = false;
    std::uint32_t failedStarts = 0;
    Category reason = Category::Success;  // for which it ended
    Timers::iterator timer;               // while Delayed
    Timers::node_type timerNode;          // otherwise: a delay needs no memory
};

// What the agent sees of a ticket: a handler that performs its work.
class QueueCore::Worker : public ITransferHandler
{
public:
    Worker(std::shared_ptr<QueueCore> core, Entry& entry) : m_Core(std::move(core)), m_Entry(entry)
    {}

    Result DoTransfer(const TransferDetail&) const override
    {
        m_Core->m_Perform(m_Entry);
        Result result;
        result.success = true;
        return result;
    }

private:
    const std::shared_ptr<QueueCore> m_Core;
    Entry& m_Entry;
};

class QueueCore::WorkerFactory : public ITransferHandlerFactory
{
public:
    WorkerFactory(std::shared_ptr<QueueCore> core, Entry& entry)
        : m_Core(std::move(core)), m_Entry(entry)
    {}

    std::unique_ptr<ITransferHandler> Create() override
    {
        WorkerExit::Watch(m_Core);
        return std::make_unique<Worker>(m_Core, m_Entry);
    }

private:
    const std::shared_ptr<QueueCore> m_Core;
    Entry& m_Entry;
};

QueueCore::QueueCore(std::unique_ptr<ITransferAgentManager> agent, Milliseconds startInterval)
    : m_Agent(std::move(agent)), m_StartInterval(startInterval)
{}
QueueCore::~QueueCore() = default;

std::shared_ptr<QueueCore> QueueCore::Make(std::unique_ptr<ITransferAgentManager> agent,
                                           Milliseconds startInterval)
{
    WorkerExit::Prepare();
    std::shared_ptr<QueueCore> core(new QueueCore(std::move(agent), startInterval));
    core->m_Thread = std::thread([queue = core.get()] { queue->m_Run(); });
    return core;
}

Ticket QueueCore::NewTicket()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return ++m_LastTicket;
}

bool QueueCore::Add(Ticket ticket, Priority priority, Milliseconds delay,
                    std::shared_ptr<QueuedWork> work)
{
    auto entry = std::make_unique<Entry>(ticket, priority, std::move(work));
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_IsClosed) {
        return false;
    }
    Entry& added = *m_Entries.emplace(ticket, std::move(entry)).first->second;
    if (delay.count() > 0) {
        m_Delay(added, Clock::now() + delay);
    } else {
        m_Lines.PushBack(added, priority, false);
    }
    m_Changed.notify_one();
    return true;
}

bool QueueCore::Cancel(Ticket ticket)
{
    std::shared_ptr<QueuedWork> work;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Entries.find(ticket);
        if (found == m_Entries.end()) {
            return false;
        }
        Entry& entry = *found->second;
        if (entry.state != State::Running) {
            m_EndLater(entry, Category::Cancelled);
            return true;
        }
        entry.isStopped = true;
        work = entry.work;
    }
    work->Stop();
    return true;
}

void QueueCore::CancelAll()
{
    RunningWork running;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_CancelAll(running);
    }
    for (const auto& work : running) {
        if (work) {
            work->Stop();
        }
    }
}

void QueueCore::Close()
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_IsClosed = true;
        m_Changed.notify_one();
    }
    CancelAll();
    m_Thread.join();
    m_Agent.reset();
}

// The queue's thread: starts, wakes and ends.
void QueueCore::m_Run()
{
    Lock lock(m_Mutex);
    while (!m_IsClosed || !m_Entries.empty() || !m_Ended.IsEmpty() || m_PlacesTaken > 0) {
        m_WakeDue();
        if (!m_Ended.IsEmpty()) {
            m_EndCancelled(lock);
        } else if (m_MayStart()) {
            m_StartNext(lock);
        } else {
            m_Wait(lock);
        }
    }
}

// On a worker.
void QueueCore::m_Perform(Entry& entry)
{
    const std::optional<Milliseconds> wait = entry.work->Perform();
    EntryPtr over;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (wait && !entry.isStopped) {
            entry.failedStarts = 0;
            m_Delay(entry, Clock::now() + *wait);
            return;  // the queue learns of the wait when this worker exits
        }
        over = m_TakeOut(entry);
    }
    over->work->End(wait ? Category::Cancelled : Category::Success);
}

void QueueCore::OnWorkerExit()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    --m_PlacesTaken;
    m_Changed.notify_one();
}

void QueueCore::m_EndCancelled(Lock& lock)
{
    EntryPtr entry(static_cast<Entry*>(&m_Ended.PopFront()));
    lock.unlock();
    entry->work->End(entry->reason);
    entry.reset();  // may run the client's code: not while the mutex is held
    lock.lock();
}

void QueueCore::m_StartNext(Lock& lock)
{
    Entry& entry = static_cast<Entry&>(*m_Lines.Pop());
    entry.state = State::Running;
    ++m_PlacesTaken;
    lock.unlock();
    const Start start = m_RequestWorker(entry);
    lock.lock();
    if (start != Start::Done) {  // else the entry is its worker's, and may be gone
        --m_PlacesTaken;
        m_AfterFailedStart(entry, start);
    }
}

void QueueCore::m_AfterFailedStart(Entry& entry, Start start)
{
    if (entry.isStopped) {
        m_EndLater(entry, Category::Cancelled);
    } else if (start == Start::Refused) {
        m_EndLater(entry, Category::InvalidRequest);
    } else if (++entry.failedStarts == MostStarts) {
        m_EndLater(entry, Category::NoThread);
    } else {
        entry.state = State::Waiting;
        m_Lines.PushFront(entry, entry.priority, entry.hasBegun);
        m_NextStart = Clock::now() + m_StartInterval;
    }
}

void QueueCore::m_Wait(Lock& lock)
{
    std::optional<Clock::time_point> until;
    if (!m_Timers.empty()) {
        until = m_Timers.begin()->first;
    }
    if (!m_Lines.IsEmpty() && m_PlacesTaken < PlaceCount) {
        until = until ? std::min(*until, m_NextStart) : m_NextStart;
    }
    if (until) {
        m_Changed.wait_until(lock, *until);
    } else {
        m_Changed.wait(lock);
    }
}

bool QueueCore::m_MayStart() const
{
    return !m_Lines.IsEmpty() && m_PlacesTaken < PlaceCount && Clock::now() >= m_NextStart;
}

// Those that have begun go before the others: the time that their transfer may take is running.
void QueueCore::m_WakeDue()
{
    while (!m_Timers.empty() && m_Timers.begin()->first <= Clock::now()) {
        Entry& entry = *m_Timers.begin()->second;
        entry.timerNode = m_Timers.extract(m_Timers.begin());
        entry.state = State::Waiting;
        m_Lines.PushBack(entry, entry.priority, entry.hasBegun);
    }
}

void QueueCore::m_Delay(Entry& entry, Clock::time_point until)
{
    entry.hasBegun = entry.state == State::Running;
    entry.state = State::Delayed;
    entry.timerNode.key() = until;
    entry.timer = m_Timers.insert(std::move(entry.timerNode));
}

// Only the queue's thread may do it: the caller may hold locks that the client's code wants.
void QueueCore::m_EndLater(Entry& entry, Category reason)
{
    if (entry.state == State::Delayed) {
        m_Timers.erase(entry.timer);
    } else if (entry.state == State::Waiting) {
        EntryList::Remove(entry);
    }
    entry.reason = reason;
    m_Ended.PushBack(*m_TakeOut(entry).release());
    m_Changed.notify_one();
}

void QueueCore::m_CancelAll(RunningWork& running)
{
    std::size_t count = 0;
    for (auto each = m_Entries.begin(); each != m_Entries.end();) {
        Entry& entry = *each->second;
        ++each;  // the entry may leave the table
        if (entry.state == State::Running) {
            entry.isStopped = true;
            running[count++] = entry.work;
        } else {
            m_EndLater(entry, Category::Cancelled);
        }
    }
}

QueueCore::EntryPtr QueueCore::m_TakeOut(Entry& entry)
{
    const auto found = m_Entries.find(entry.ticket);
    EntryPtr taken = std::move(found->second);
    m_Entries.erase(found);
    return taken;
}

QueueCore::Start QueueCore::m_RequestWorker(Entry& entry)
{
    try {
        auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
        entry.work->Describe(*request);
        request->segmented = true;  // the agent does not wait for delays then
        request->dataCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {};
        request->handlerFactory = std::make_unique<WorkerFactory>(shared_from_this(), entry);
        return m_Agent->RequestTransfer(std::move(request)) == ITransferAgentManager::InvalidHandle
                   ? Start::Refused
                   : Start::Done;
    } catch (const std::system_error&) {
        return Start::NoThread;
    } catch (const std::bad_alloc&) {
        return Start::NoThread;
    }
}

}  // namespace KIT
}  // namespace VORTAN_MW
