#pragma once

#include <ucontext.h>

#include <array>
#include <cstddef>
#include <vector>

#include "Explorer.h"

namespace EXPLORER {

constexpr std::int64_t Endless = INT64_MAX;
constexpr int Nobody = -1;
constexpr std::size_t MaxKeys = 4;

// One time per thread: how much of it has happened before.
using VectorClock = std::array<std::uint16_t, MaxThreads>;

// A mutex, a condition variable, the guard of a static, a gate, or reference counts, known by its
// address.
struct Object
{
    const void* address = nullptr;
    const char* kind = nullptr;
    int number = 0;  // among its kind
    int owner = Nobody;
    bool done = false;       // a guard's static is initialised, a gate is open
    std::uint64_t past = 0;  // identifies what has happened to it
    std::int64_t time = 0;
    VectorClock clock = {};
};

// What a thread is about to do, and what it needs to go on.
struct Call
{
    enum Need
    {
        Nothing,
        Free,      // the object has no owner
        Done,      // the object is done
        Ended,     // the thread has ended
        Woken,     // the wait has ended; the outcome tells how
        Rest,      // nobody else can go on
        Waiter,    // nothing, but the outcome tells which waiter of the object is meant
        NewThread  // nothing, but the outcome may be that there is none
    };

    const char* verb;
    Object* object = nullptr;
    Need need = Nothing;
    int thread = Nobody;
    std::int64_t deadline = Endless;
    Object* mutex = nullptr;  // of a wait that begins
};

// Of Woken and of NewThread.
enum Outcome : std::uint8_t
{
    Notified,
    NotifiedLate,  // it only runs again when its time is up
    TimeOut,
    Spurious,
    CannotStart
};

struct Thread
{
    Call call = {"begins"};
    std::uint8_t outcome = 0;
    bool notified = false;
    bool returned = false;  // from its function
    bool ended = false;
    bool disposed = false;
    bool tracked = false;
    int mutexes = 0;
    std::uint64_t past = 0;  // identifies what it has done, and what happened before
    std::int64_t time = 0;
    VectorClock clock = {};
    void* (*routine)(void*) = nullptr;
    void* argument = nullptr;
    std::array<void*, MaxKeys> values = {};  // its own, one for each key
    void* exceptions[3] = {};  // the C++ runtime's, which are per thread of the system
    ucontext_t context;
};

// One thing that can happen next.
struct Option
{
    int thread;
    std::uint8_t outcome;
    bool preempts;
};

// A line of the table.
struct Event
{
    int thread;
    std::string what;
    std::string place;  // in the sources; else it is found by the stack
    std::vector<std::uintptr_t> stack;
};

enum class End
{
    Completed,
    Abandoned,
    Failed
};

// Runs a scenario once. Its threads are coroutines of the thread that calls Run.
class Scheduler
{
public:
    // Makes the decisions of a run.
    struct Chooser
    {
        // Returns one of two or more options, or a larger number to abandon the run. state
        // identifies what has happened, whichever order independent threads took.
        virtual std::size_t Choose(const std::vector<Option>& options, std::uint64_t state) = 0;

    protected:
        ~Chooser() = default;
    };

    End Run(const Scenario& scenario, Chooser& chooser, std::vector<Event>* events);
    std::uint64_t State() const;  // identifies what has happened in the run

    // Called on a scenario's thread. Returns the outcome when this thread may go on and do what it
    // has announced; nobody else runs before its next call.
    std::uint8_t Perform(const Call& call);
    int Start(void* (*routine)(void*), void* argument);  // Nobody if that fails
    Object* Find(const void* address, const char* kind);
    void Acquire(const Object& object);
    void Release(Object& object);
    // The calling thread lets go of a reference. Which of several do so first cannot be told,
    // except by the one that is the last.
    void Drop(Object& counts, bool isLast);
    // Returns the key, or Nobody.
    int AddKey(void (*destructor)(void*));
    [[noreturn]] void Fail(const std::string& what);
    void Tell(const std::string& what, const std::string& place);

    bool active = false;  // the scenario's code is running, not the explorer's
    bool replays = false;
    std::string failure;
    std::size_t steps = 0;
    std::size_t current = 0;
    std::vector<Thread> threads;
    std::vector<Object> objects;
    std::vector<void (*)(void*)> keys;  // the destructors of threads' own values

    Thread& Self() { return threads[current]; }

private:
    static void s_Entry();
    void m_DestroyValues();
    void m_Next();
    void m_AddOptions(std::size_t number, bool preempts);
    bool m_IsBlocked(const Thread& thread) const;
    void m_Enter();
    void m_Return();
    [[noreturn]] void m_End();
    [[noreturn]] void m_Leave(End end);

    std::vector<Option> m_Options;
    Chooser* m_Chooser = nullptr;
    std::vector<Event>* m_Events = nullptr;
    End m_HowItEnds = End::Completed;
    int m_SpuriousWakeUps = 0;
    int m_ThreadsThatCannotStart = 0;
    ucontext_t m_Main;
};

extern Scheduler scheduler;

std::string Describe(const Call& call);

// The statics that were initialised in this run are initialised again in the next.
void ResetStatics();

// The memory of a run, and the search for races and for the use of freed memory in it.
namespace MEMORY {

constexpr std::size_t StackSize = 256U << 10U;

extern bool tracked;  // what the running thread reads and writes is checked
void Reset();
void* Stack(std::size_t thread);
void* Allocate(std::size_t size);  // never at the same address twice in a run
bool Owns(const void* block);
void Free(void* block);
void Access(const void* address, std::size_t size, bool writes);
void ExpectAlive(const Object& object);

}  // namespace MEMORY
}  // namespace EXPLORER
