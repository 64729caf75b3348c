#pragma once

#include <cstdint>
#include <string>

// Runs a small multi-threaded program, a scenario, under every schedule with a bounded number of
// preemptions. The code under test is compiled unchanged: the program defines the threads library's
// functions itself, runs one thread at a time, and decides at each call which one goes on.
//
//     const EXPLORER::Scenario scenario("gate", "A thread opens a gate", [] {
//         EXPLORER::Gate done;
//         std::thread worker([&] { done.Open(); });
//         done.Wait();
//         EXPLORER::Expect(!EXPLORER::HoldsMutex(), "no mutex is left held");
//         worker.join();
//     });
//
// A scenario must do the same in each run with the same schedule, and keep nothing from one run to
// the next: what it allocates is taken back when the run ends, wherever its threads are then.
namespace EXPLORER {

constexpr std::size_t MaxThreads = 12;

constexpr int NoWorkers = -1;

// Registers a scenario; to be defined at namespace scope.
struct Scenario
{
    Scenario(const char* ownName, const char* ownAbout, void (*ownRun)(), int wakeUps = 1,
             int failures = 0);

    const char* const name;
    const char* const about;
    void (*const run)();
    const int spuriousWakeUps;         // at most so many in a run
    const int threadsThatCannotStart;  // the same; NoWorkers: all but the scenario's first
    const Scenario* const next;
};

// Ends the run, and with it the search: this schedule breaks a promise.
[[noreturn]] void Fail(const std::string& what);
void Expect(bool condition, const char* promise);

// Whether this run's table is printed, and a line for it.
bool IsReplay();
void Note(const std::string& what, const std::string& place = std::string());

bool HoldsMutex();       // whether the calling thread does
int ThisThread();        // its number; the scenario's own thread is 1
int ThreadsToDispose();  // how many were started, and neither joined nor detached
int ThreadsAtWork();     // how many others have not returned from their function

// A point in a thread's execution.
class Moment
{
public:
    static Moment Now();
    // Whether synchronisation orders it before now. This holds or not whichever order independent
    // threads happened to run in.
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
