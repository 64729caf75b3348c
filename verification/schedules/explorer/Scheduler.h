#pragma once

#include <pthread.h>
#include <ucontext.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Explorer.h"
#include "Memory.h"

namespace EXPLORER {

constexpr std::int64_t Endless = INT64_MAX;
constexpr int Nobody = -1;

// One time per thread: how much of it has happened before.
using VectorClock = std::array<std::uint16_t, MaxThreads>;

enum class Operation : std::uint8_t
{
    Begin,
    End,
    Lock,
    TryLock,
    Unlock,
    Wait,  // frees the mutex and begins to wait
    Wake,  // ends the wait; Lock follows
    NotifyOne,
    NotifyAll,
    Create,
    Join,
    Detach,
    Yield,
    ReadGuard,
    AcquireGuard,
    ReleaseGuard,
    OpenGate,
    PassGate,
    Rest,
};

// How a wait ends, what becomes of a new thread, and whether a mutex that is tried is free. For
// NotifyOne the outcome is the number of waiters that are passed over.
enum Outcome : std::uint8_t
{
    Usual = 0,
    NotifiedLate = 1,  // notified, but only running again after its time was up
    TimeOut = 2,
    Spurious = 3,
    CannotStart = 4,
    IsTaken = 5,
};

// A mutex, a condition variable, the guard of a static, or a gate, known by its address.
struct Object
{
    const void* address;
    const char* kind;
    int number;  // among its kind
    int owner = Nobody;
    bool done = false;       // a guard's static is initialised, a gate is open
    std::uint64_t past = 0;  // identifies all that has happened to it, and before
    std::int64_t time = 0;
    VectorClock clock = {};
};

// What a thread is about to do.
struct Call
{
    Operation operation = Operation::Begin;
    Object* object = nullptr;
    Object* mutex = nullptr;  // of a wait
    int thread = Nobody;      // to be joined or detached
    std::int64_t deadline = Endless;
};

struct Thread
{
    Call call;
    std::uint8_t outcome = Usual;
    bool waiting = false;
    bool notified = false;
    bool ended = false;
    bool disposed = false;
    bool yielded = false;
    bool tracked = false;
    int mutexes = 0;
    std::uint64_t past = 0;
    std::int64_t time = 0;
    VectorClock clock = {};
    void* (*routine)(void*) = nullptr;
    void* argument = nullptr;
    void* result = nullptr;
    void* exceptions[3] = {};  // the C++ runtime's, which are per thread
    ucontext_t context;
};

// One thing that can happen next.
struct Option
{
    std::uint8_t thread;
    std::uint8_t outcome;
    bool preempts;
};

struct Options
{
    std::array<Option, MaxThreads * 4> all;
    std::size_t count = 0;

    void Add(int thread, std::uint8_t outcome, bool preempts)
    {
        all[count++] = {static_cast<std::uint8_t>(thread), outcome, preempts};
    }
};

// Makes the decisions of a run.
class Chooser
{
public:
    static constexpr std::size_t Abandon = SIZE_MAX;

    // Picks one of two or more. state identifies what has happened so far, whichever order
    // independent threads took.
    virtual std::size_t Choose(const Options& options, std::uint64_t state) = 0;

protected:
    ~Chooser() = default;
};

// Learns what happens in a run.
class Observer
{
public:
    // The place is in the sources; empty if it is the caller's.
    virtual void Did(int thread, const std::string& what, const std::string& place) = 0;

protected:
    ~Observer() = default;
};

struct RunResult
{
    enum
    {
        Completed,
        Abandoned,
        Failed
    } end;
    std::string failure;
    std::uint64_t state;  // identifies what has happened, but for the order of independent steps
    std::size_t steps;
};

// Runs a scenario once. Its threads are coroutines of the thread that calls Run.
class Scheduler
{
public:
    RunResult Run(const Scenario& scenario, Chooser& chooser, Observer* observer);

    // Whether the code of a scenario is running, rather than this program's own.
    bool IsActive() const { return m_Active; }
    bool IsReplay() const { return m_Observer != nullptr; }

    // Called on a scenario's thread. Returns when this thread is chosen to go on and has done it.
    std::uint8_t Perform(Call call);
    Object* Find(const void* address, const char* kind);
    int Create(void* (*routine)(void*), void* argument);  // returns Nobody if it cannot start
    void* ResultOf(int thread) const { return m_Threads[Index(thread)].result; }
    bool Exists(int thread) const { return thread >= 0 && Index(thread) < m_ThreadCount; }
    int Current() const { return m_Current; }
    Thread& Self() { return m_Threads[Index(m_Current)]; }
    int ThreadsToDispose() const;
    [[noreturn]] void Fail(const std::string& what);
    void Tell(const std::string& what, const std::string& place = std::string());
    void Forget(const void* from, std::size_t size);  // memory that is given back

private:
    static std::size_t Index(int thread) { return static_cast<std::size_t>(thread); }
    static void s_Entry();

    void m_Reset(const Scenario& scenario);
    void m_Start(int thread, void* (*routine)(void*), void* argument);
    void m_Next();
    void m_SwitchTo(int thread);
    void m_AddOptions(int thread, bool preempts, Options& options) const;
    bool m_IsBlocked(const Thread& thread) const;
    bool m_AllOthersRest(int thread) const;
    bool m_MayPass(int thread) const;
    void m_Apply(Thread& self);
    void m_ApplyToObject(Thread& self, Object& object);
    void m_ApplyToThread(Thread& self, Thread& other);
    void m_Unlock(Thread& self, Object& mutex);
    void m_Acquire(Thread& self, const Object& object);
    void m_Release(Thread& self, Object& object);
    void m_Extend(Thread& self);
    void m_Notify(const Thread& self);
    std::uint64_t m_State() const;
    [[noreturn]] void m_Leave();
    [[noreturn]] void m_FailDeadlocked();
    void m_Enter();
    void m_Return();

    std::array<Thread, MaxThreads> m_Threads;
    std::size_t m_ThreadCount = 0;
    std::array<Object, 64> m_Objects;
    std::size_t m_ObjectCount = 0;
    int m_Current = Nobody;
    bool m_Active = false;
    Faults m_Faults;
    Chooser* m_Chooser = nullptr;
    Observer* m_Observer = nullptr;
    RunResult m_Result;
    ucontext_t m_Main;
};

extern Scheduler scheduler;

// Has the function-local statics that were initialised in this run initialised again in the next.
void ResetStatics();

// Words for the table.
std::string NameOf(const Object& object);
std::string Describe(const Call& call, std::uint8_t outcome);

}  // namespace EXPLORER
