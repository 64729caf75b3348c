#pragma once

#include <array>
#include <cstdint>
#include <string>

// Runs a small multi-threaded program, a scenario, under every schedule with a bounded number of
// preemptions. The code under test is compiled unchanged: the program defines the threads library's
// functions itself, runs one thread at a time, and decides at each call which one goes on.
//
//     void Run()
//     {
//         EXPLORER::Gate done;
//         std::thread worker([&] { done.Open(); });
//         done.Wait();
//         EXPLORER::Expect(!EXPLORER::HoldsMutex(), "no mutex is left held");
//         worker.join();
//     }
//     const EXPLORER::Scenario scenario("gate", "A thread opens a gate", &Run);
//
// A scenario must do the same in each run that has the same schedule, and keep nothing from one run
// to the next: what it allocates is taken back when the run ends, wherever its threads are then.
namespace EXPLORER {

constexpr std::size_t MaxThreads = 12;

// What a scenario allows to go wrong by itself, counted over a whole run.
struct Faults
{
    int spuriousWakeUps = 1;
    int threadsThatCannotStart = 0;
};

// Registers a scenario; to be defined at namespace scope.
class Scenario
{
public:
    Scenario(const char* name, const char* about, void (*run)(), Faults faults = Faults());

    const char* const name;
    const char* const about;
    void (*const run)();
    const Faults faults;
    const Scenario* const next;

    static const Scenario* First();
    static const Scenario* Find(const std::string& name);
};

// Ends the run, and with it the search: this schedule breaks a promise.
[[noreturn]] void Fail(const std::string& what);
void Expect(bool condition, const char* promise);

// Adds a line to the table that is printed when a schedule is replayed. The place is found by
// itself if it is empty.
void Note(const std::string& what, const std::string& place = std::string());
// Whether notes are printed in this run; else there is no need to compose them.
bool IsReplay();

// Whether the calling thread holds a mutex.
bool HoldsMutex();
// Numbered in the order in which they are started; the scenario's own thread is 1.
int ThisThread();
// Threads started so far that were neither joined nor detached.
int ThreadsToDispose();

// A point in a thread's execution. Whether one happened before another does not depend on the order
// in which independent threads happened to run, but on how they synchronised.
class Moment
{
public:
    Moment() = default;  // happened before everything
    static Moment Now();
    bool HappenedBefore() const;

private:
    std::size_t m_Thread = 0;
    std::uint16_t m_Time = 0;
};

// Lets threads wait for one another. What precedes Open happens before what follows Wait.
class Gate
{
public:
    void Open();
    void Wait();
    bool IsOpen() const { return m_Open; }

private:
    bool m_Open = false;
};

// Returns once no other thread can go on.
void WaitUntilOthersRest();

// While one lives, the calling thread's accesses to memory are checked for races, or not. They are
// where the code under test runs, and not in what a scenario writes down about it.
class Tracked
{
public:
    explicit Tracked(bool tracked = true);
    ~Tracked();
    Tracked(const Tracked&) = delete;
    Tracked& operator=(const Tracked&) = delete;

private:
    bool m_Before;
};

}  // namespace EXPLORER
