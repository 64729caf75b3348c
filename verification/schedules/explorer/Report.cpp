#include "Report.h"

#include <link.h>
#include <unistd.h>
#include <unwind.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

namespace EXPLORER {

namespace {

const char* Verb(const Call& call, std::uint8_t outcome)
{
    switch (call.operation) {
        case Operation::Begin:
            return "begins";
        case Operation::End:
            return "ends";
        case Operation::Lock:
            return "locks";
        case Operation::TryLock:
            return outcome == IsTaken ? "tries, in vain, to lock" : "locks";
        case Operation::Unlock:
            return "unlocks";
        case Operation::Wait:
            return "unlocks its mutex and waits for";
        case Operation::Wake:
            return outcome == TimeOut        ? "has waited long enough for"
                   : outcome == Spurious     ? "wakes up spuriously from its wait for"
                   : outcome == NotifiedLate ? "is woken, but its time is up, by"
                                             : "is woken by";
        case Operation::NotifyOne:
            return "notifies one thread at";
        case Operation::NotifyAll:
            return "notifies all threads at";
        case Operation::Create:
            return outcome == CannotStart ? "cannot start a thread" : "starts";
        case Operation::Join:
            return "joins";
        case Operation::Detach:
            return "detaches";
        case Operation::Yield:
            return "steps aside";
        case Operation::ReadGuard:
            return "asks whether a static is initialised:";
        case Operation::AcquireGuard:
            return "initialises, unless that was done, the static of";
        case Operation::ReleaseGuard:
            return "has initialised the static of";
        case Operation::OpenGate:
            return "opens";
        case Operation::PassGate:
            return "passes";
        case Operation::Rest:
            return "goes on, as all others rest";
    }
    return "?";
}

// The first frame in a source file of the code under test: neither a header nor the explorer's.
class Places
{
public:
    // Asks addr2line about all the addresses at once.
    void Resolve(const std::vector<std::vector<std::uintptr_t>>& stacks)
    {
        std::ostringstream command;
        command << "addr2line -a -C -f -i -e /proc/" << getpid() << "/exe";
        for (const auto& stack : stacks) {
            for (const std::uintptr_t address : stack) {
                command << " 0x" << std::hex << address << std::dec;
            }
        }
        FILE* const pipe = popen((command.str() + " 2>/dev/null").c_str(), "r");
        if (pipe == nullptr) {
            return;
        }
        char line[4096];
        std::uintptr_t address = 0;
        while (std::fgets(line, sizeof line, pipe) != nullptr) {
            if (line[0] == '0' && line[1] == 'x') {
                address = std::strtoul(line, nullptr, 16);
                continue;
            }
            const std::string function = line;
            if (std::fgets(line, sizeof line, pipe) != nullptr) {
                Consider(address, function, line);
            }
        }
        pclose(pipe);
    }

    std::string Of(const std::vector<std::uintptr_t>& stack) const
    {
        for (const std::uintptr_t address : stack) {
            const auto found = m_Places.find(address);
            if (found != m_Places.end()) {
                return found->second;
            }
        }
        return std::string();
    }

private:
    void Consider(std::uintptr_t address, std::string function, std::string place)
    {
        place.erase(place.find_first_of(" \n"));
        if (place.find(".cpp:") == std::string::npos ||
            place.find("/explorer/") != std::string::npos) {
            return;
        }
        function.erase(function.find_first_of("(\n"));
        function.erase(0, function.rfind(' ') + 1);
        const std::size_t qualifier = function.rfind("::");
        function.erase(0, qualifier == std::string::npos ? 0 : qualifier + 2);
        place.erase(0, place.rfind('/') + 1);
        m_Places.try_emplace(address, function + "  " + place);
    }

    std::map<std::uintptr_t, std::string> m_Places;
};

_Unwind_Reason_Code AddFrame(_Unwind_Context* context, void* stack)
{
    auto& frames = *static_cast<std::vector<std::uintptr_t>*>(stack);
    // The call comes before the address that it returns to.
    frames.push_back(_Unwind_GetIP(context) - 1);
    return frames.size() < 40 ? _URC_NO_REASON : _URC_END_OF_STACK;
}

int ReadBase(dl_phdr_info* info, std::size_t, void* base)
{
    *static_cast<std::uintptr_t*>(base) = info->dlpi_addr;
    return 1;  // the program comes first
}

// The lines of the table.
class Table : public Observer
{
public:
    Table() { dl_iterate_phdr(&ReadBase, &m_Base); }

    void Did(int thread, const std::string& what, const std::string& place) override
    {
        std::vector<std::uintptr_t> stack;
        _Unwind_Backtrace(&AddFrame, &stack);
        for (std::uintptr_t& address : stack) {
            address -= m_Base;
        }
        m_Threads.push_back(thread + 1);
        m_What.push_back(what);
        m_Places.push_back(place);
        m_Stacks.push_back(stack);
    }

    void Print()
    {
        Places places;
        places.Resolve(m_Stacks);
        std::printf("%4s  %-8s  %-62s  %s\n", "", "thread", "where", "what it does");
        for (std::size_t i = 0; i < m_What.size(); ++i) {
            const bool same = i > 0 && m_Threads[i] == m_Threads[i - 1];
            std::printf("%4zu  %-8s  %-62s  %s\n", i + 1,
                        same ? "" : std::to_string(m_Threads[i]).c_str(),
                        (m_Places[i].empty() ? places.Of(m_Stacks[i]) : m_Places[i]).c_str(),
                        m_What[i].c_str());
        }
    }

private:
    std::uintptr_t m_Base = 0;
    std::vector<int> m_Threads;
    std::vector<std::string> m_What;
    std::vector<std::string> m_Places;
    std::vector<std::vector<std::uintptr_t>> m_Stacks;
};

}  // namespace

std::string NameOf(const Object& object)
{
    return std::string(object.kind) + " " + std::to_string(object.number);
}

std::string Describe(const Call& call, std::uint8_t outcome)
{
    std::string text = Verb(call, outcome);
    if (call.object != nullptr) {
        text += " " + NameOf(*call.object);
    }
    if (call.thread != Nobody) {
        text += " thread " + std::to_string(call.thread + 1);
    }
    return text;
}

RunResult PrintRun(const Scenario& scenario, Chooser& chooser)
{
    Table table;
    const RunResult result = scheduler.Run(scenario, chooser, &table);
    table.Print();
    return result;
}

}  // namespace EXPLORER
