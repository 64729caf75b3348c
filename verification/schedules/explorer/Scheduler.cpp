#include "Scheduler.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace EXPLORER {

Scheduler scheduler;

namespace {

constexpr std::size_t MostSteps = 20000;
constexpr std::int64_t StartOfTime = 1000000000000;  // of the clocks, in nanoseconds

// Hashes two numbers into one.
std::uint64_t Mix(std::uint64_t first, std::uint64_t second)
{
    std::uint64_t mixed = first ^ (second + 0x9e3779b97f4a7c15U + (first << 6U) + (first >> 2U));
    mixed *= 0xff51afd7ed558ccdU;
    mixed ^= mixed >> 33U;
    mixed *= 0xc4ceb9fe1a85ec53U;
    return mixed ^ (mixed >> 29U);
}

void* RunScenario(void* scenario)
{
    static_cast<const Scenario*>(scenario)->run();
    return nullptr;
}

void Join(VectorClock& clock, const VectorClock& other)
{
    for (std::size_t i = 0; i < MaxThreads; ++i) {
        clock[i] = std::max(clock[i], other[i]);
    }
}

// Exchanges the C++ runtime's record of the exceptions being handled, which it keeps per thread of
// the system, for that of a coroutine.
void ExchangeExceptions(void* (&from)[3], void* const (&to)[3])
{
    void* const current = abi::__cxa_get_globals();
    constexpr std::size_t size = sizeof(void*) == 4 ? sizeof from : 2 * sizeof from[0];
    std::memcpy(from, current, size);
    std::memcpy(current, to, size);
}

}  // namespace

RunResult Scheduler::Run(const Scenario& scenario, Chooser& chooser, Observer* observer)
{
    m_Reset(scenario);
    m_Chooser = &chooser;
    m_Observer = observer;
    // The threads never write to it.
    m_Start(0, &RunScenario, const_cast<Scenario*>(&scenario));
    m_Current = 0;
    void* exceptions[3];
    ExchangeExceptions(exceptions, m_Threads[0].exceptions);
    swapcontext(&m_Main, &m_Threads[0].context);
    void* abandoned[3];
    ExchangeExceptions(abandoned, exceptions);
    ResetStatics();
    m_Result.state = m_State();
    return m_Result;
}

void Scheduler::m_Reset(const Scenario& scenario)
{
    Memory().Reset();
    RACES::Reset();
    m_ThreadCount = 0;
    m_ObjectCount = 0;
    m_Faults = scenario.faults;
    m_Result = RunResult();
}

void Scheduler::m_Start(int number, void* (*routine)(void*), void* argument)
{
    Thread& thread = m_Threads[Index(number)];
    thread = Thread();
    thread.routine = routine;
    thread.argument = argument;
    thread.time = StartOfTime;
    m_ThreadCount = Index(number) + 1;
    getcontext(&thread.context);
    thread.context.uc_stack.ss_sp = Memory().Stack(Index(number));
    thread.context.uc_stack.ss_size = StackSize;
    thread.context.uc_link = nullptr;
    makecontext(&thread.context, &Scheduler::s_Entry, 0);
    thread.clock[Index(number)] = 1;
}

void Scheduler::s_Entry()
{
    Thread& self = scheduler.Self();
    scheduler.m_Apply(self);
    scheduler.m_Return();
    self.result = self.routine(self.argument);
    scheduler.m_Enter();
    self.call = Call();
    self.call.operation = Operation::End;
    scheduler.m_Apply(self);
    scheduler.m_Next();
}

void Scheduler::m_Enter()
{
    m_Active = false;
    RACES::tracked = false;
}

void Scheduler::m_Return()
{
    RACES::tracked = Self().tracked;
    m_Active = true;
}

std::uint8_t Scheduler::Perform(Call call)
{
    m_Enter();
    Thread& self = Self();
    self.call = call;
    m_Next();
    m_Apply(self);
    m_Return();
    return self.outcome;
}

int Scheduler::Create(void* (*routine)(void*), void* argument)
{
    Call call;
    call.operation = Operation::Create;
    call.thread = static_cast<int>(m_ThreadCount);
    if (m_ThreadCount == MaxThreads) {
        Fail("there are too many threads for the explorer");
    }
    m_Enter();
    Thread& self = Self();
    self.call = call;
    m_Next();
    // Others may have started threads meanwhile.
    self.call.thread = static_cast<int>(m_ThreadCount);
    if (self.outcome == CannotStart) {
        --m_Faults.threadsThatCannotStart;
        self.call.thread = Nobody;
    } else {
        m_Start(self.call.thread, routine, argument);
    }
    m_Apply(self);
    m_Return();
    return self.call.thread;
}

// Decides what happens next. Returns on the same thread, when it is this thread's turn.
void Scheduler::m_Next()
{
    if (++m_Result.steps > MostSteps) {
        Fail("the run has not ended after " + std::to_string(MostSteps) + " steps");
    }
    const Operation operation = Self().call.operation;
    Options options;
    m_AddOptions(m_Current, false, options);
    const bool preempts =
        options.count > 0 && operation != Operation::Wake && operation != Operation::Yield;
    for (std::size_t i = 1; i < m_ThreadCount; ++i) {
        m_AddOptions(static_cast<int>((Index(m_Current) + i) % m_ThreadCount), preempts, options);
    }
    if (options.count == 0) {
        m_FailDeadlocked();
    }
    std::size_t choice = 0;
    if (options.count > 1) {
        choice = m_Chooser->Choose(options, Mix(m_State(), preempts ? Index(m_Current) : 99U));
        if (choice == Chooser::Abandon) {
            m_Result.end = RunResult::Abandoned;
            m_Leave();
        }
    }
    const int next = options.all[choice].thread;
    m_Threads[Index(next)].outcome = options.all[choice].outcome;
    m_SwitchTo(next);
}

void Scheduler::m_SwitchTo(int thread)
{
    if (thread == m_Current) {
        return;
    }
    Thread& from = Self();
    Thread& to = m_Threads[Index(thread)];
    m_Current = thread;
    ExchangeExceptions(from.exceptions, to.exceptions);
    swapcontext(&from.context, &to.context);
}

void Scheduler::m_AddOptions(int number, bool preempts, Options& options) const
{
    const Thread& thread = m_Threads[Index(number)];
    const Call& call = thread.call;
    if (thread.ended || (call.operation != Operation::Wake && m_IsBlocked(thread)) ||
        (call.operation == Operation::Rest && !m_AllOthersRest(number))) {
        return;
    }
    if (call.operation == Operation::Wake) {
        if (thread.notified) {
            options.Add(number, Usual, preempts);
        }
        if (call.deadline != Endless) {
            options.Add(number, thread.notified ? NotifiedLate : TimeOut, preempts);
        }
        if (!thread.notified && m_Faults.spuriousWakeUps > 0) {
            options.Add(number, Spurious, preempts);
        }
        return;
    }
    std::uint8_t outcomes = 1;
    if (call.operation == Operation::NotifyOne) {  // who is woken
        std::uint8_t waiters = 0;
        for (std::size_t i = 0; i < m_ThreadCount; ++i) {
            const Thread& other = m_Threads[i];
            if (other.waiting && !other.notified && other.call.object == call.object) {
                ++waiters;
            }
        }
        outcomes = std::max<std::uint8_t>(waiters, 1);
    }
    for (std::uint8_t outcome = 0; outcome < outcomes; ++outcome) {
        options.Add(number, outcome, preempts);
    }
    if (call.operation == Operation::Create && m_Faults.threadsThatCannotStart > 0) {
        options.Add(number, CannotStart, preempts);
    }
}

// Whether only another thread can let it go on.
bool Scheduler::m_IsBlocked(const Thread& thread) const
{
    const Call& call = thread.call;
    switch (call.operation) {
        case Operation::Lock:
        case Operation::AcquireGuard:
            return call.object->owner != Nobody;
        case Operation::Wake:
            return !thread.notified && call.deadline == Endless;
        case Operation::Join:
            return !m_Threads[Index(call.thread)].ended;
        case Operation::PassGate:
            return !call.object->done;
        default:
            return thread.ended;
    }
}

bool Scheduler::m_AllOthersRest(int thread) const
{
    for (std::size_t i = 0; i < m_ThreadCount; ++i) {
        if (i != Index(thread) && !m_IsBlocked(m_Threads[i]) &&
            m_Threads[i].call.operation != Operation::Rest) {
            return false;
        }
    }
    return true;
}

// What the running thread's call does.
void Scheduler::m_Apply(Thread& self)
{
    const Call& call = self.call;
    if (call.object != nullptr) {
        RACES::ExpectAlive(call.object->address, call.object->kind);
    }
    m_Extend(self);
    switch (call.operation) {
        case Operation::Wait:
            m_Unlock(self, *call.mutex);
            self.waiting = true;
            self.notified = false;
            break;
        case Operation::Wake:
            self.waiting = false;
            m_Faults.spuriousWakeUps -= self.outcome == Spurious ? 1 : 0;
            if (self.outcome == TimeOut || self.outcome == NotifiedLate) {
                self.time = std::max(self.time, call.deadline);
            }
            break;
        case Operation::NotifyOne:
        case Operation::NotifyAll:
            m_Notify(self);
            break;
        case Operation::Create:
        case Operation::Join:
        case Operation::Detach:
            if (call.thread != Nobody) {
                m_ApplyToThread(self, m_Threads[Index(call.thread)]);
            }
            break;
        case Operation::End:
            if (self.mutexes > 0) {
                Fail("the thread ends while it holds a mutex");
            }
            self.ended = true;
            break;
        default:
            if (call.object != nullptr) {
                m_ApplyToObject(self, *call.object);
            }
    }
    if (m_Observer != nullptr) {
        m_Observer->Did(m_Current, Describe(call, self.outcome), std::string());
    }
}

void Scheduler::m_ApplyToObject(Thread& self, Object& object)
{
    switch (self.call.operation) {
        case Operation::TryLock:
            self.outcome = object.owner == Nobody ? Usual : IsTaken;
            if (self.outcome == IsTaken) {
                break;
            }
            [[fallthrough]];
        case Operation::Lock:
            object.owner = m_Current;
            ++self.mutexes;
            m_Acquire(self, object);
            break;
        case Operation::Unlock:
            m_Unlock(self, object);
            break;
        case Operation::AcquireGuard:
            object.owner = object.done ? Nobody : m_Current;
            [[fallthrough]];
        case Operation::ReadGuard:
        case Operation::PassGate:
            if (object.done) {
                m_Acquire(self, object);
            }
            break;
        case Operation::ReleaseGuard:
        case Operation::OpenGate:
            object.owner = Nobody;
            object.done = true;
            m_Release(self, object);
            break;
        default:
            break;
    }
}

void Scheduler::m_Unlock(Thread& self, Object& mutex)
{
    if (mutex.owner != m_Current) {
        Fail("the thread frees " + NameOf(mutex) + ", which it does not hold");
    }
    mutex.owner = Nobody;
    --self.mutexes;
    m_Release(self, mutex);
}

void Scheduler::m_ApplyToThread(Thread& self, Thread& other)
{
    if (self.call.operation == Operation::Create) {
        other.past = Mix(self.past, 1);
        other.time = self.time;
        other.tracked = self.tracked;
        const std::uint16_t own = other.clock[Index(self.call.thread)];
        other.clock = self.clock;
        other.clock[Index(self.call.thread)] = own;
        ++self.clock[Index(m_Current)];
        return;
    }
    if (other.disposed) {
        Fail("thread " + std::to_string(self.call.thread + 1) + " was joined or detached before");
    }
    other.disposed = true;
    if (self.call.operation == Operation::Join) {
        self.time = std::max(self.time, other.time);
        Join(self.clock, other.clock);
    }
}

void Scheduler::m_Acquire(Thread& self, const Object& object)
{
    self.time = std::max(self.time, object.time);
    Join(self.clock, object.clock);
}

void Scheduler::m_Release(Thread& self, Object& object)
{
    object.time = std::max(self.time, object.time);
    Join(object.clock, self.clock);
    ++self.clock[Index(m_Current)];
}

// Adds the running thread's call to what has happened to the thread and to what it touches. So two
// threads' calls have an order, as far as this tells, only if they touch the same.
void Scheduler::m_Extend(Thread& self)
{
    const Call& call = self.call;
    std::uint64_t past =
        Mix(self.past, static_cast<std::uint64_t>(call.operation) * 256 + self.outcome);
    if (call.operation == Operation::Rest) {
        past = Mix(past, m_State());
    }
    if (call.operation == Operation::Join || call.operation == Operation::Detach) {
        past = Mix(past, m_Threads[Index(call.thread)].past);
    }
    for (Object* const object : {call.object, call.mutex}) {
        past = Mix(past, object != nullptr ? object->past : 0);
    }
    for (Object* const object : {call.object, call.mutex}) {
        if (object != nullptr) {
            object->past = past;
        }
    }
    self.past = past;
}

void Scheduler::m_Notify(const Thread& self)
{
    int skipped = self.outcome;
    for (std::size_t i = 0; i < m_ThreadCount; ++i) {
        Thread& thread = m_Threads[i];
        if (thread.waiting && !thread.notified && thread.call.object == self.call.object) {
            if (self.call.operation == Operation::NotifyAll) {
                thread.notified = true;
            } else if (skipped-- == 0) {
                thread.notified = true;
                return;
            }
        }
    }
}

std::uint64_t Scheduler::m_State() const
{
    std::uint64_t state = 0;
    for (std::size_t i = 0; i < m_ThreadCount; ++i) {
        state ^= Mix(m_Threads[i].past, i);
    }
    return state;
}

Object* Scheduler::Find(const void* address, const char* kind)
{
    int number = 1;
    for (std::size_t i = 0; i < m_ObjectCount; ++i) {
        if (m_Objects[i].address == address && m_Objects[i].kind == kind) {
            return &m_Objects[i];
        }
        number += m_Objects[i].kind == kind ? 1 : 0;
    }
    RACES::ExpectAlive(address, kind);
    if (m_ObjectCount == m_Objects.size()) {
        Fail("there are too many mutexes and the like for the explorer");
    }
    Object& object = m_Objects[m_ObjectCount++];
    object = Object();
    object.address = address;
    object.kind = kind;
    object.number = number;
    return &object;
}

void Scheduler::Forget(const void* from, std::size_t size)
{
    const auto first = reinterpret_cast<std::uintptr_t>(from);
    for (std::size_t i = 0; i < m_ObjectCount; ++i) {
        const Object& object = m_Objects[i];
        if (reinterpret_cast<std::uintptr_t>(object.address) - first >= size) {
            continue;
        }
        if (object.owner != Nobody) {
            Fail(NameOf(object) + " is destroyed while it is held");
        }
        for (std::size_t thread = 0; thread < m_ThreadCount; ++thread) {
            if (m_Threads[thread].waiting && m_Threads[thread].call.object == &object) {
                Fail(NameOf(object) + " is destroyed while thread " + std::to_string(thread + 1) +
                     " waits for it");
            }
        }
    }
}

int Scheduler::ThreadsToDispose() const
{
    int count = 0;
    for (std::size_t i = 1; i < m_ThreadCount; ++i) {
        count += m_Threads[i].disposed ? 0 : 1;
    }
    return count;
}

void Scheduler::Fail(const std::string& what)
{
    m_Enter();
    m_Result.end = RunResult::Failed;
    m_Result.failure = what;
    Tell("FAILS: " + what);
    m_Leave();
}

void Scheduler::Tell(const std::string& what, const std::string& place)
{
    if (m_Observer != nullptr) {
        const bool active = m_Active;
        m_Enter();
        m_Observer->Did(m_Current, what, place);
        if (active) {
            m_Return();
        }
    }
}

// Nothing can happen any more: everything has ended, or there is a deadlock.
void Scheduler::m_FailDeadlocked()
{
    std::string waiting;
    for (std::size_t i = 0; i < m_ThreadCount; ++i) {
        const Thread& thread = m_Threads[i];
        const std::string name = "thread " + std::to_string(i + 1);
        if (!thread.ended) {
            waiting += (waiting.empty() ? "" : "; ") + name + " cannot go on: it " +
                       Describe(thread.call, Usual);
        } else if (i > 0 && !thread.disposed && waiting.empty()) {
            Fail(name + " was neither joined nor detached");
        }
    }
    if (!waiting.empty()) {
        Fail("deadlock: " + waiting);
    }
    m_Result.end = RunResult::Completed;
    m_Leave();
}

void Scheduler::m_Leave()
{
    setcontext(&m_Main);
    std::abort();
}

}  // namespace EXPLORER
