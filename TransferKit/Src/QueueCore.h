#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>

#include "ITransferAgentManager.h"
#include "TransferObserver.h"
#include "TransferQueue.h"
#include "WaitingLines.h"
#include "WorkerExit.h"

namespace VORTAN_MW {
namespace KIT {

// What a ticket stands for. One thread at a time performs or ends it; Stop may be called meanwhile.
class QueuedWork
{
public:
    using Milliseconds = std::chrono::milliseconds;

    QueuedWork() = default;
    QueuedWork(const QueuedWork&) = delete;
    QueuedWork& operator=(const QueuedWork&) = delete;
    virtual ~QueuedWork() = default;

    // Fills in what the agent's log and its checks look at.
    virtual void Describe(ITransferHandler::Configuration& configuration) const = 0;

    // Makes one attempt, on a worker. Returns how long to wait before the next; nothing if the work
    // is over.
    virtual std::optional<Milliseconds> Perform() = 0;

    // Has Perform return soon, also if it begins later. Any thread, any number of times.
    virtual void Stop() = 0;

    // Tells the outcome; the last call. Success: the one that Perform has led to. Otherwise the
    // work ends for this reason before its next attempt, or its first one.
    virtual void End(Category reason) = 0;
};

// The tickets of a queue: who waits, who has a place, and who is told the outcome. It knows nothing
// of what a transfer is.
//
// A ticket is Delayed until its time has come, Waiting until there is a place, and Running on a
// worker of the agent. It leaves the table when its outcome is decided; whoever took it out calls
// End, with no lock held: the worker, or, if there is none, the queue's thread.
//
// The agent never cancels anything, so every worker performs its work. That a place is free is
// known when its worker exits: WorkerExit.
class QueueCore final : public WorkerExit::Listener, public std::enable_shared_from_this<QueueCore>
{
public:
    using Milliseconds = std::chrono::milliseconds;

    // As many as the agent performs at a time.
    static constexpr std::size_t PlaceCount = 4;

    // startInterval: between attempts to start a worker, when there is no thread for it. Throws
    // std::system_error if the queue's own thread cannot be started.
    static std::shared_ptr<QueueCore> Make(std::unique_ptr<ITransferAgentManager> agent,
                                           Milliseconds startInterval = Milliseconds(100));
    QueueCore(const QueueCore&) = delete;
    QueueCore& operator=(const QueueCore&) = delete;
    ~QueueCore();

    // A ticket that no other call has returned.
    Ticket NewTicket();
    // False if the queue is closed. Throws std::bad_alloc.
    bool Add(Ticket ticket, Priority priority, Milliseconds delay,
             std::shared_ptr<QueuedWork> work);
    bool Cancel(Ticket ticket);
    void CancelAll();
    // Cancels all, and returns when each has been told its outcome and all workers have exited.
    // Once, and not on a worker or in QueuedWork::End.
    void Close();

    void OnWorkerExit() override;

private:
    using Clock = std::chrono::steady_clock;
    using Lock = std::unique_lock<std::mutex>;
    struct Entry;
    using EntryPtr = std::unique_ptr<Entry>;
    using Timers = std::multimap<Clock::time_point, Entry*>;
    // The work of all that are running, to be stopped without the mutex.
    using RunningWork = std::array<std::shared_ptr<QueuedWork>, PlaceCount>;
    class Worker;
    class WorkerFactory;

    enum class State
    {
        Delayed,  // in m_Timers
        Waiting,  // in m_Lines
        Running,  // its worker's
    };

    enum class Start
    {
        Done,
        Refused,
        NoThread,
    };

    QueueCore(std::unique_ptr<ITransferAgentManager> agent, Milliseconds startInterval);

    void m_Run();
    void m_Perform(Entry& entry);

    // The lock holds m_Mutex, also when these return.
    void m_EndCancelled(Lock& lock);
    void m_StartNext(Lock& lock);
    void m_AfterFailedStart(Entry& entry, Start start);
    void m_Wait(Lock& lock);

    // With m_Mutex held.
    bool m_MayStart() const;
    void m_WakeDue();
    void m_Delay(Entry& entry, Clock::time_point until);
    void m_EndLater(Entry& entry, Category reason);
    void m_CancelAll(RunningWork& running);
    EntryPtr m_TakeOut(Entry& entry);

    Start m_RequestWorker(Entry& entry);

    std::unique_ptr<ITransferAgentManager> m_Agent;  // used by the queue's thread alone
    const Milliseconds m_StartInterval;
    std::thread m_Thread;

    std::mutex m_Mutex;
    std::condition_variable m_Changed;

    // All of it guarded by m_Mutex.
    Ticket m_LastTicket = 0;
    bool m_IsClosed = false;
    std::unordered_map<Ticket, EntryPtr> m_Entries;
    Timers m_Timers;
    WaitingLines m_Lines;
    EntryList m_Ended;  // owned; the queue's thread ends them
    std::size_t m_PlacesTaken = 0;
    Clock::time_point m_NextStart;  // no sooner, after a thread could not be started
};

}  // namespace KIT
}  // namespace VORTAN_MW
