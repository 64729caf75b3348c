#include "Client.h"

#include <dlog.h>

#include <cstdarg>
#include <optional>
#include <system_error>

#include "AsyncTransferAgentManager.h"

using EXPLORER::Expect;
using EXPLORER::Moment;
using EXPLORER::Tracked;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::KIT::Category;
using VORTAN_MW::KIT::Priority;
using VORTAN_MW::KIT::QueueCore;
using VORTAN_MW::KIT::QueuedWork;
using VORTAN_MW::KIT::Ticket;
using Milliseconds = QueuedWork::Milliseconds;

namespace {

constexpr std::chrono::seconds RetryInterval(1);

Client* current = nullptr;  // of this run

class Work : public QueuedWork
{
public:
    explicit Work(Task& task) : m_Task(task) { ++m_Task.works; }
    ~Work() override
    {
        const Tracked untracked(false);
        Expect(!EXPLORER::HoldsMutex(), "work is destroyed with no mutex held");
        --m_Task.works;
    }

    void Describe(ITransferHandler::Configuration& configuration) const override
    {
        const Tracked untracked(false);
        m_Task.client.Describe(m_Task);
        configuration.url = m_Task.isValid ? m_Task.name : std::string();
    }
    std::optional<Milliseconds> Perform() override
    {
        const Tracked untracked(false);
        return m_Task.client.Perform(m_Task);
    }
    void Stop() override
    {
        const Tracked untracked(false);
        m_Task.client.Stop(m_Task);
    }
    void End(Category reason) override
    {
        const Tracked untracked(false);
        m_Task.client.End(m_Task, reason);
    }

private:
    Task& m_Task;
};

void Run(const std::function<void()>& script)
{
    if (script) {
        script();
    }
}

}  // namespace

Client::Client()
{
    m_Cancels.resize(EXPLORER::MaxThreads + 1);
    current = this;
    try {
        const Tracked tracked;
        m_Queue = QueueCore::Make(VORTAN_MW::AsyncTransferAgentManager::Create());
        isMade = true;
    } catch (const std::system_error&) {  // no thread could be started
    }
}

Task& Client::New()
{
    const std::string name(1, static_cast<char>('A' + m_Tasks.size()));
    m_Tasks.push_back(std::make_unique<Task>(*this, name));
    return *m_Tasks.back();
}

bool Client::Add(Task& task)
{
    const bool wasClosed = m_Closed;
    bool accepted = false;
    Ticket ticket = 0;
    QueueCore& queue = *m_Queue;
    task.addedAt = Moment::Now();
    task.mayPerformAt = std::chrono::steady_clock::now() + task.delay;
    auto work = std::make_shared<Work>(task);
    const Priority priority = task.priority;
    const Milliseconds delay = task.delay;
    {
        const Tracked tracked;
        ticket = queue.NewTicket();
    }
    task.ticket = ticket;
    {
        const Tracked tracked;
        accepted = queue.Add(ticket, priority, delay, std::move(work));
    }
    task.accepted = accepted;
    task.refused = !accepted;
    Expect(!accepted || !wasClosed, "a queue that is closed accepts nothing");
    Expect(accepted || m_Closes, "a queue that is not closed accepts all");
    Expect(accepted || (task.works == 0 && !task.described && task.ends == 0),
           "a refused work is destroyed at once, and never called");
    for (const auto& other : m_Tasks) {
        Expect(other.get() == &task || other->ticket != task.ticket, "each ticket is another");
    }
    return accepted;
}

Task& Client::AddNew()
{
    Task& task = New();
    Add(task);
    return task;
}

bool Client::Cancel(Task& task)
{
    const auto thread = static_cast<std::size_t>(EXPLORER::ThisThread());
    const bool hadEnded = task.ends > 0;
    ++task.cancels;
    bool result = false;
    const Ticket ticket = task.ticket;
    QueueCore& queue = *m_Queue;
    m_Cancels[thread] = true;
    {
        const Tracked tracked;
        result = queue.Cancel(ticket);
    }
    m_Cancels[thread] = false;
    Expect(!result || !hadEnded, "a cancel that comes after the outcome returns false");
    Expect(result || task.isDone || task.cancels > 1 || m_CancelsOfAll > 0 || !task.isValid ||
               task.findsNoThread,
           "a cancel that comes before the outcome returns true");
    if (result) {
        m_NoteCancelled(task);
    }
    return result;
}

void Client::CancelAll()
{
    const auto thread = static_cast<std::size_t>(EXPLORER::ThisThread());
    ++m_CancelsOfAll;
    std::vector<Task*> added;
    for (const auto& task : m_Tasks) {
        if (task->accepted) {
            added.push_back(task.get());
        }
    }
    QueueCore& queue = *m_Queue;
    m_Cancels[thread] = true;
    {
        const Tracked tracked;
        queue.CancelAll();
    }
    m_Cancels[thread] = false;
    for (Task* const task : added) {
        m_NoteCancelled(*task);
    }
}

void Client::m_NoteCancelled(Task& task) const
{
    Expect(!task.isPerforming || task.stopped, "a cancel stops the work that is performed");
    task.mayStillPerform = !task.isPerforming && (!task.cancelled || task.mayStillPerform);
    task.cancelled = true;
}

void Client::Close()
{
    ++m_CancelsOfAll;
    m_Closes = true;
    QueueCore& queue = *m_Queue;
    {
        const Tracked tracked;
        queue.Close();
    }
    m_Closed = true;
    Expect(
        EXPLORER::ThreadsAtWork() <= clientThreads && EXPLORER::ThreadsToDispose() == clientThreads,
        "closing returns when all workers have exited");
    for (const auto& task : m_Tasks) {
        if (task->accepted) {
            m_CheckEnd(*task);
        }
    }
}

Client::~Client()
{
    if (!isMade) {
        Expect(EXPLORER::ThreadsAtWork() == 0, "a queue that cannot be made leaves no thread");
        return;
    }
    for (const auto& task : m_Tasks) {
        Expect(task->works == 0, "every work is destroyed");
        Expect(!task->accepted || !Cancel(*task), "nothing is left to be cancelled");
    }
    Expect(!Add(New()), "a queue that is closed accepts nothing");
    const std::weak_ptr<QueueCore> watch = m_Queue;
    {
        const Tracked tracked;
        m_Queue.reset();
    }
    EXPLORER::WaitUntilOthersRest();
    Expect(watch.expired(), "a queue that nobody uses is destroyed");
}

void Client::Describe(Task& task)
{
    m_Enter(task, "describes");
    Expect(!task.isPerforming && task.ends == 0 && !task.isDone,
           "a work is started only while it waits");
    for (const auto& other : m_Tasks) {
        const bool isEarlier = other->accepted && other->ticket < task.ticket &&
                               other->priority == task.priority && other->delay.count() == 0;
        Expect(!isEarlier || task.delay.count() > 0 || other->described || other->cancels > 0 ||
                   m_CancelsOfAll > 0,
               "those of a priority begin in their order");
    }
    if (!task.described) {
        order += task.name;
    }
    task.described = true;
}

std::optional<Milliseconds> Client::Perform(Task& task)
{
    m_Enter(task, "performs");
    Expect(++m_Performing <= MostPerforming, "four perform at most");
    Expect(EXPLORER::ThreadsAtWork() <= clientThreads + MostPerforming + 1,
           "there are never more than four workers");
    Expect(task.addedAt.HappenedBefore() && task.performedAt.HappenedBefore(),
           "what happens to a work comes in order");
    Expect(!task.isPerforming && !task.isDone && task.ends == 0,
           "a work is performed only while it waits, and by one worker");
    Expect(std::chrono::steady_clock::now() >= task.mayPerformAt,
           "a work that waits is performed when its time has come");
    Expect(!task.cancelled || (task.mayStillPerform && task.stopped),
           "a cancelled work is performed only if it was about to be, and is stopped");
    task.mayStillPerform = false;
    task.isPerforming = true;
    ++task.performs;
    Run(task.inPerform);
    m_Enter(task, "has performed");
    task.isPerforming = false;
    --m_Performing;
    task.performedAt = Moment::Now();
    if (task.performs <= task.retries) {
        task.mayPerformAt = std::chrono::steady_clock::now() + RetryInterval;
        return RetryInterval;
    }
    task.isDone = true;
    return std::nullopt;
}

void Client::Stop(Task& task)
{
    if (EXPLORER::IsReplay()) {
        EXPLORER::Note(task.name + ": is stopped");
    }
    Expect(!EXPLORER::HoldsMutex(), "a work is called with no mutex held");
    Expect(task.works > 0, "a work is used only until it is destroyed");
    Expect(task.cancels > 0 || m_CancelsOfAll > 0, "only a cancel stops a work");
    task.stopped = true;
}

void Client::End(Task& task, Category reason)
{
    m_Enter(task, "ends");
    Expect(!m_Cancels[static_cast<std::size_t>(EXPLORER::ThisThread())],
           "no outcome is told inside a cancel");
    Expect(++task.ends == 1, "a ticket has one outcome");
    Expect(task.addedAt.HappenedBefore() && task.performedAt.HappenedBefore() && !task.isPerforming,
           "what happens to a work comes in order");
    task.reason = reason;
    task.endsByItself = m_CancelsOfAll == 0;
    m_CheckReason(task);
    Run(task.inEnd);
    m_Enter(task, "has ended");
    task.endedAt = Moment::Now();
}

void Client::m_CheckReason(const Task& task) const
{
    switch (task.reason) {
        case Category::Success:
            Expect(task.isDone, "a work succeeds only if it was performed");
            break;
        case Category::Cancelled:
            Expect(!task.isDone && (task.cancels > 0 || m_CancelsOfAll > 0),
                   "a work is cancelled only if somebody cancels it in time");
            break;
        case Category::InvalidRequest:
            Expect(!task.isValid && task.performs == 0,
                   "a work is refused only if the agent refuses it");
            break;
        case Category::NoThread:
            Expect(task.findsNoThread && !task.isDone,
                   "a work finds no thread only after many attempts");
            break;
        default:
            EXPLORER::Fail("broken promise: a work ends for a reason that is known");
    }
}

void Client::m_Enter(const Task& task, const char* where) const
{
    if (EXPLORER::IsReplay()) {
        EXPLORER::Note(task.name + ": " + where);
    }
    Expect(!EXPLORER::HoldsMutex(), "a work is called with no mutex held");
    Expect(!m_Closed, "a work is not called once the queue is closed");
    Expect(task.works > 0 && !task.refused, "a work is used only until it is destroyed");
}

void Client::m_CheckEnd(const Task& task) const
{
    Expect(task.ends == 1, "every accepted ticket has an outcome");
    Expect(task.endedAt.HappenedBefore(), "each outcome is told before closing returns");
    Expect(clientThreads > 0 || task.works == 0, "every work is destroyed before closing returns");
    Expect(task.reason != Category::Cancelled || !task.endsByItself || task.cancelled,
           "the cancel that ends a ticket returns true");
}

void Client::Log(const std::string& text)
{
    Expect(text.find("Maximum number of parallel transfers reached") == std::string::npos,
           "the agent never has to refuse a fifth transfer");
}

// The agent's log comes here.
extern "C" int __dlog_print(int, int, const char*, const char* format, ...)
{
    const Tracked untracked(false);
    va_list pieces;
    va_start(pieces, format);
    const char* const file = va_arg(pieces, const char*);
    const char* const function = va_arg(pieces, const char*);
    const int line = va_arg(pieces, int);
    const char* const text = va_arg(pieces, const char*);
    va_end(pieces);
    if (EXPLORER::IsReplay()) {
        EXPLORER::Note(std::string("logs: ") + text,
                       std::string(function) + "  " + file + ":" + std::to_string(line));
    }
    current->Log(text);
    return 0;
}
