#include "Scheduler.h"

#include <cxxabi.h>
#include <sys/single_threaded.h>
#include <unwind.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace EXPLORER {

Scheduler scheduler;

namespace {

constexpr std::size_t MostSteps = 20000;
constexpr std::int64_t StartOfTime = 1000000000000;  // of the clocks, in nanoseconds

// Hashes two numbers into one.
std::uint64_t Mix(std::uint64_t first, std::uint64_t second)
{
    std::uint64_t mixed = first ^ (second + 0x9e3779b97f4a7c15U + (first << 6U) + (first >> 2U));
    mixed = (mixed ^ (mixed >> 33U)) * 0xff51afd7ed558ccdU;
    return (mixed ^ (mixed >> 29U)) * 0xc4ceb9fe1a85ec53U;
}

// Exchanges the C++ runtime's record of the exceptions being handled for that of another coroutine.
void ExchangeExceptions(void* (&from)[3], void* const (&to)[3])
{
    constexpr std::size_t size = (sizeof(void*) == 4 ? 3 : 2) * sizeof(void*);
    std::memcpy(from, abi::__cxa_get_globals(), size);
    std::memcpy(static_cast<void*>(abi::__cxa_get_globals()), to, size);
}

void* RunScenario(void* scenario)
{
    static_cast<const Scenario*>(scenario)->run();
    return nullptr;
}

_Unwind_Reason_Code AddFrame(_Unwind_Context* context, void* stack)
{
    // The call comes before the address that it returns to.
    static_cast<std::vector<std::uintptr_t>*>(stack)->push_back(_Unwind_GetIP(context) - 1);
    return _URC_NO_REASON;
}

}  // namespace

End Scheduler::Run(const Scenario& scenario, Chooser& chooser, std::vector<Event>* events)
{
    MEMORY::Reset();
    threads.clear();
    threads.reserve(MaxThreads);
    objects.clear();
    objects.reserve(64);
    keys.clear();
    keys.reserve(MaxKeys);
    // The library counts references with atomics if there are several threads, which it cannot
    // know.
    __libc_single_threaded = 0;
    steps = 0;
    m_Chooser = &chooser;
    m_Events = events;
    replays = events != nullptr;
    m_SpuriousWakeUps = scenario.spuriousWakeUps;
    m_ThreadsThatCannotStart = scenario.threadsThatCannotStart;
    Start(&RunScenario, const_cast<Scenario*>(&scenario));
    current = 0;
    void* exceptions[3];
    void* abandoned[3];
    ExchangeExceptions(exceptions, Self().exceptions);
    swapcontext(&m_Main, &Self().context);
    ExchangeExceptions(abandoned, exceptions);
    ResetStatics();
    return m_HowItEnds;
}

int Scheduler::Start(void* (*routine)(void*), void* argument)
{
    const std::size_t number = threads.size();
    if (number == MaxThreads) {
        Fail("the explorer has no room for so many threads");
    }
    threads.emplace_back();
    Thread& thread = threads.back();
    thread.routine = routine;
    thread.argument = argument;
    thread.time = StartOfTime;
    getcontext(&thread.context);
    thread.context.uc_stack.ss_sp = MEMORY::Stack(number);
    thread.context.uc_stack.ss_size = MEMORY::StackSize;
    makecontext(&thread.context, &Scheduler::s_Entry, 0);
    if (number > 0) {
        thread.past = Mix(Self().past, number);
        thread.time = Self().time;
        thread.clock = Self().clock;
        thread.tracked = Self().tracked;
        ++Self().clock[current];
    }
    thread.clock[number] = 1;
    return static_cast<int>(number);
}

void Scheduler::s_Entry()
{
    scheduler.Self().past = Mix(scheduler.Self().past, 1);
    scheduler.Tell("begins", std::string());
    scheduler.m_Return();
    scheduler.Self().routine(scheduler.Self().argument);
    scheduler.Self().returned = true;
    scheduler.m_DestroyValues();
    scheduler.m_Enter();
    scheduler.Tell("ends", std::string());
    if (scheduler.Self().mutexes > 0) {
        scheduler.Fail("the thread ends while it holds a mutex");
    }
    scheduler.Self().ended = true;
    scheduler.Self().call = {"has ended"};
    scheduler.m_Next();
}

void Scheduler::m_DestroyValues()
{
    for (std::size_t key = 0; key < keys.size(); ++key) {
        void* const value = std::exchange(Self().values[key], nullptr);
        if (value != nullptr && keys[key] != nullptr) {
            keys[key](value);
        }
    }
}

void Scheduler::m_Enter()
{
    active = MEMORY::tracked = false;
}

void Scheduler::m_Return()
{
    MEMORY::tracked = Self().tracked;
    active = true;
}

// What the calling thread announces becomes part of its past, and of its object's. So two threads'
// calls have an order, as far as the pasts tell, only if they have to do with the same object.
std::uint8_t Scheduler::Perform(const Call& call)
{
    m_Enter();
    const std::size_t self = current;
    threads[self].call = call;
    m_Next();
    Thread& thread = threads[self];
    std::uint64_t past = Mix(thread.past, reinterpret_cast<std::uintptr_t>(call.verb));
    past = Mix(past, thread.outcome);
    if (call.need == Call::Rest) {
        past = Mix(past, State());
    }
    if (call.thread != Nobody) {
        past = Mix(past, threads[static_cast<std::size_t>(call.thread)].past);
    }
    for (Object* const object : {call.object, call.mutex}) {
        if (object != nullptr) {
            MEMORY::ExpectAlive(*object);
            past = Mix(past, object->past);
        }
    }
    for (Object* const object : {call.object, call.mutex}) {
        if (object != nullptr) {
            object->past = past;
        }
    }
    thread.past = past;
    m_SpuriousWakeUps -= call.need == Call::Woken && thread.outcome == Spurious ? 1 : 0;
    if (call.need == Call::NewThread && thread.outcome == CannotStart &&
        m_ThreadsThatCannotStart > 0) {
        --m_ThreadsThatCannotStart;
    }
    if (call.need == Call::Woken && (thread.outcome == TimeOut || thread.outcome == NotifiedLate)) {
        thread.time = std::max(thread.time, call.deadline);
    }
    if (replays) {
        static constexpr const char* ends[] = {": is notified", ": is notified, but late",
                                               ": its time is up", ": wakes up spuriously",
                                               ": fails"};
        const bool tells = call.need == Call::Woken || thread.outcome == CannotStart;
        Tell(Describe(call) + (tells ? ends[thread.outcome] : ""), std::string());
    }
    m_Return();
    return thread.outcome;
}

// Decides what happens next. Returns on the same thread, when it is that thread's turn.
void Scheduler::m_Next()
{
    if (++steps > MostSteps) {
        Fail("the run does not end");
    }
    m_Options.clear();
    m_AddOptions(current, false);
    // A thread that waits or steps aside lets others go on of its own accord.
    const bool preempts = !m_Options.empty() && Self().call.need != Call::Woken &&
                          std::strcmp(Self().call.verb, "steps aside") != 0;
    for (std::size_t i = 1; i < threads.size(); ++i) {
        m_AddOptions((current + i) % threads.size(), preempts);
    }
    if (m_Options.empty()) {
        m_End();
    }
    std::size_t choice = 0;
    if (m_Options.size() > 1) {
        choice = m_Chooser->Choose(m_Options, Mix(State(), preempts ? current : MaxThreads));
        if (choice >= m_Options.size()) {
            m_Leave(End::Abandoned);
        }
    }
    Thread& from = Self();
    const auto next = static_cast<std::size_t>(m_Options[choice].thread);
    threads[next].outcome = m_Options[choice].outcome;
    if (next != current) {
        current = next;
        ExchangeExceptions(from.exceptions, Self().exceptions);
        swapcontext(&from.context, &Self().context);
    }
}

void Scheduler::m_AddOptions(std::size_t number, bool preempts)
{
    const Thread& thread = threads[number];
    const Call& call = thread.call;
    const auto add = [&](std::uint8_t outcome) {
        m_Options.push_back({static_cast<int>(number), outcome, preempts});
    };
    if (call.need == Call::Woken) {
        if (thread.notified) {
            add(Notified);
        }
        if (call.deadline != Endless) {
            add(thread.notified ? NotifiedLate : TimeOut);
        }
        if (!thread.notified && m_SpuriousWakeUps > 0) {
            add(Spurious);
        }
    } else if (call.need == Call::Rest) {
        const auto rests = [&](const Thread& other) {
            return &other == &thread || other.call.need == Call::Rest || m_IsBlocked(other);
        };
        if (std::all_of(threads.begin(), threads.end(), rests)) {
            add(0);
        }
    } else if (!m_IsBlocked(thread)) {
        const auto waits = [&](const Thread& other) {
            return other.call.need == Call::Woken && !other.notified &&
                   other.call.object == call.object;
        };
        const bool canStart = m_ThreadsThatCannotStart != NoWorkers || threads.size() == 1;
        if (call.need != Call::NewThread || canStart) {
            add(0);
        }
        const bool asks = call.need == Call::Waiter;
        const auto waiters = asks ? std::count_if(threads.begin(), threads.end(), waits) : 0;
        for (std::uint8_t i = 1; i < waiters; ++i) {
            add(i);
        }
        if (call.need == Call::NewThread && (m_ThreadsThatCannotStart > 0 || !canStart)) {
            add(CannotStart);
        }
    }
}

// Whether only another thread can let it go on.
bool Scheduler::m_IsBlocked(const Thread& thread) const
{
    const Call& call = thread.call;
    switch (call.need) {
        case Call::Free:
            return call.object->owner != Nobody;
        case Call::Done:
            return !call.object->done;
        case Call::Ended:
            return !threads[static_cast<std::size_t>(call.thread)].ended;
        case Call::Woken:
            return !thread.notified && call.deadline == Endless;
        default:
            return thread.ended;
    }
}

std::uint64_t Scheduler::State() const
{
    std::uint64_t state = 0;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        state ^= Mix(threads[i].past, i);
    }
    return state;
}

Object* Scheduler::Find(const void* address, const char* kind)
{
    int number = 1;
    for (Object& object : objects) {
        if (object.address == address && object.kind == kind) {
            return &object;
        }
        number += object.kind == kind ? 1 : 0;
    }
    if (objects.size() == objects.capacity()) {
        Fail("the explorer has no room for so many objects");
    }
    Object& object = objects.emplace_back();
    object.address = address;
    object.kind = kind;
    object.number = number;
    return &object;
}

void Scheduler::Acquire(const Object& object)
{
    Self().time = std::max(Self().time, object.time);
    for (std::size_t i = 0; i < MaxThreads; ++i) {
        Self().clock[i] = std::max(Self().clock[i], object.clock[i]);
    }
}

void Scheduler::Release(Object& object)
{
    object.time = std::max(Self().time, object.time);
    for (std::size_t i = 0; i < MaxThreads; ++i) {
        object.clock[i] = std::max(Self().clock[i], object.clock[i]);
    }
    ++Self().clock[current];
}

void Scheduler::Drop(Object& counts, bool isLast)
{
    counts.past += Mix(Self().past, current);
    Release(counts);
    if (isLast) {
        Acquire(counts);
        Self().past = Mix(Self().past, counts.past);
    }
}

int Scheduler::AddKey(void (*destructor)(void*))
{
    if (keys.size() == MaxKeys) {
        return Nobody;
    }
    keys.push_back(destructor);
    return static_cast<int>(keys.size()) - 1;
}

void Scheduler::Tell(const std::string& what, const std::string& place)
{
    if (replays) {
        const bool before = active;
        active = false;
        m_Events->push_back({static_cast<int>(current), what, place, {}});
        _Unwind_Backtrace(&AddFrame, &m_Events->back().stack);
        active = before;
    }
}

void Scheduler::Fail(const std::string& what)
{
    m_Enter();
    failure = what;
    Tell("FAILS: " + what, std::string());
    m_Leave(End::Failed);
}

// Nothing can happen any more: all has ended, or there is a deadlock.
void Scheduler::m_End()
{
    std::string blocked;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        const std::string name = "thread " + std::to_string(i + 1);
        if (!threads[i].ended) {
            blocked += "; " + name + " " + Describe(threads[i].call);
        } else if (i > 0 && !threads[i].disposed && blocked.empty()) {
            Fail(name + " was neither joined nor detached");
        }
    }
    if (!blocked.empty()) {
        Fail("deadlock, where each thread cannot do what comes next" + blocked);
    }
    m_Leave(End::Completed);
}

void Scheduler::m_Leave(End end)
{
    m_HowItEnds = end;
    setcontext(&m_Main);
    std::abort();
}

std::string Describe(const Call& call)
{
    std::string text = call.verb;
    if (call.object != nullptr) {
        text += std::string(" ") + call.object->kind + " " + std::to_string(call.object->number);
    }
    return call.thread == Nobody ? text : text + " thread " + std::to_string(call.thread + 1);
}

}  // namespace EXPLORER
