#include "Explorer.h"

#include "Scheduler.h"

namespace EXPLORER {

namespace {

const Scenario* firstScenario = nullptr;

constexpr char GateKind[] = "gate";

Call CallOf(Operation operation, const void* gate = nullptr)
{
    Call call;
    call.operation = operation;
    call.object = gate != nullptr ? scheduler.Find(gate, GateKind) : nullptr;
    return call;
}

}  // namespace

Scenario::Scenario(const char* ownName, const char* ownAbout, void (*ownRun)(), Faults ownFaults)
    : name(ownName), about(ownAbout), run(ownRun), faults(ownFaults), next(firstScenario)
{
    firstScenario = this;
}

const Scenario* Scenario::First()
{
    return firstScenario;
}

const Scenario* Scenario::Find(const std::string& name)
{
    const Scenario* scenario = firstScenario;
    while (scenario != nullptr && scenario->name != name) {
        scenario = scenario->next;
    }
    return scenario;
}

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

void Note(const std::string& what, const std::string& place)
{
    scheduler.Tell(what, place);
}

bool IsReplay()
{
    return scheduler.IsReplay();
}

bool HoldsMutex()
{
    return scheduler.Self().mutexes > 0;
}

int ThisThread()
{
    return scheduler.Current() + 1;
}

int ThreadsToDispose()
{
    return scheduler.ThreadsToDispose();
}

Moment Moment::Now()
{
    Moment now;
    now.m_Thread = static_cast<std::size_t>(scheduler.Current());
    now.m_Time = scheduler.Self().clock[now.m_Thread];
    return now;
}

bool Moment::HappenedBefore() const
{
    return m_Time <= scheduler.Self().clock[m_Thread];
}

void Gate::Open()
{
    m_Open = true;
    scheduler.Perform(CallOf(Operation::OpenGate, this));
}

void Gate::Wait()
{
    scheduler.Perform(CallOf(Operation::PassGate, this));
}

void WaitUntilOthersRest()
{
    scheduler.Perform(CallOf(Operation::Rest));
}

Tracked::Tracked(bool tracked) : m_Before(scheduler.Self().tracked)
{
    scheduler.Self().tracked = RACES::tracked = tracked;
}

Tracked::~Tracked()
{
    scheduler.Self().tracked = RACES::tracked = m_Before;
}

}  // namespace EXPLORER
