#include "Explorer.h"

#include "Scheduler.h"

namespace EXPLORER {

void Fail(const std::string& what)
{
    scheduler.Fail(what);
}

void Expect(bool condition, const char* promise)
{
    if (!condition) {
        scheduler.Fail(std::string("broken promise: ") + promise);
    }
}

bool IsReplay()
{
    return scheduler.replays;
}

void Note(const std::string& what, const std::string& place)
{
    scheduler.Tell(what, place);
}

bool HoldsMutex()
{
    return scheduler.Self().mutexes > 0;
}

int ThisThread()
{
    return static_cast<int>(scheduler.current) + 1;
}

int ThreadsToDispose()
{
    int count = -1;  // without the first
    for (const Thread& thread : scheduler.threads) {
        count += thread.disposed ? 0 : 1;
    }
    return count;
}

int ThreadsAtWork()
{
    int count = -1;  // without the caller
    for (const Thread& thread : scheduler.threads) {
        count += thread.returned ? 0 : 1;
    }
    return count;
}

Moment Moment::Now()
{
    Moment now;
    now.m_Thread = scheduler.current;
    now.m_Time = scheduler.Self().clock[now.m_Thread];
    return now;
}

bool Moment::HappenedBefore() const
{
    return m_Time <= scheduler.Self().clock[m_Thread];
}

void WaitUntilOthersRest()
{
    scheduler.Perform({"goes on, as all others rest", nullptr, Call::Rest});
}

Tracked::Tracked(bool tracked) : m_Before(scheduler.Self().tracked)
{
    scheduler.Self().tracked = MEMORY::tracked = tracked;
}

Tracked::~Tracked()
{
    scheduler.Self().tracked = MEMORY::tracked = m_Before;
}

}  // namespace EXPLORER
