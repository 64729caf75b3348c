// The program: searches the schedules of its scenarios, or runs one schedule again and prints it.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <unordered_map>
#include <unordered_set>

#include "Scheduler.h"

extern "C" const char __executable_start;  // NOLINT(bugprone-reserved-identifier): the linker's

namespace EXPLORER {

namespace {

constexpr int BrokenPromise = 1;
constexpr int WrongCommand = 2;

const Scenario* firstScenario = nullptr;

// Identifies this program by its contents.
std::string BuildId()
{
    std::ifstream program("/proc/self/exe", std::ios::binary);
    std::uint32_t hash = 2166136261U;
    for (std::istreambuf_iterator<char> at(program), end; at != end; ++at) {
        hash = (hash ^ static_cast<unsigned char>(*at)) * 16777619U;
    }
    std::ostringstream text;
    text << std::hex << std::setw(8) << std::setfill('0') << hash;
    return text.str();
}

const Scenario& FindScenario(const std::string& name)
{
    for (const Scenario* scenario = firstScenario; scenario != nullptr; scenario = scenario->next) {
        if (scenario->name == name) {
            return *scenario;
        }
    }
    throw CLI::ValidationError("there is no scenario \"" + name + "\"; see --list");
}

// Runs a scenario under one schedule after the other, depth first, until there are no others with
// so few preemptions.
//
// If it is to reduce, it goes on only once from each state, unless it comes there with fewer
// preemptions. What has happened, but for the order of independent steps, determines what can
// happen next: the schedules that are left out only repeat others in another order.
class Search : public Scheduler::Chooser
{
public:
    struct Limits
    {
        int preemptions = 2;
        std::size_t schedules = SIZE_MAX;
        double seconds = 1e9;
    };

    Search(const Scenario& scenario, const Limits& limits, bool reduces)
        : m_Scenario(scenario), m_Limits(limits), m_Reduces(reduces)
    {}

    // Returns whether all promises hold in all schedules, and prints that.
    bool Run();
    // Runs one schedule and prints it as a table.
    bool Replay(const std::string& decisions);

    std::size_t Choose(const std::vector<Option>& options, std::uint64_t state) override;
    // Identifies each complete run, but for the order of independent steps.
    const std::unordered_set<std::uint64_t>& Outcomes() const { return m_Outcomes; }

private:
    struct Decision
    {
        std::vector<Option> options;
        std::size_t chosen;
        int preemptions;  // before it
    };

    bool m_Advance();
    std::string m_Decisions() const;

    const Scenario& m_Scenario;
    const Limits m_Limits;
    const bool m_Reduces;
    std::vector<Decision> m_Path;
    std::size_t m_Depth = 0;
    std::unordered_map<std::uint64_t, int> m_Known;  // by state: the fewest preemptions before it
    std::unordered_set<std::uint64_t> m_Outcomes;
    std::map<std::size_t, std::size_t> m_Replayed;  // by position
};

std::size_t Search::Choose(const std::vector<Option>& options, std::uint64_t state)
{
    const std::size_t depth = m_Depth++;
    if (scheduler.replays) {
        const auto replayed = m_Replayed.find(depth);
        const std::size_t chosen = replayed != m_Replayed.end() ? replayed->second : 0;
        m_Replayed.erase(depth);
        return chosen < options.size() ? chosen : 0;
    }
    if (depth < m_Path.size()) {
        return m_Path[depth].chosen;
    }
    int preemptions = 0;
    if (!m_Path.empty()) {
        const Decision& last = m_Path.back();
        preemptions = last.preemptions + (last.options[last.chosen].preempts ? 1 : 0);
    }
    const auto [known, isNew] =
        m_Known.try_emplace(m_Reduces ? state : m_Known.size(), preemptions);
    if (!isNew && known->second <= preemptions) {
        return options.size();
    }
    known->second = preemptions;
    // The first option never preempts: it is the running thread's, or that one cannot go on.
    m_Path.push_back({options, 0, preemptions});
    return 0;
}

// Changes the last decision that can be made otherwise. Returns false if there is none.
bool Search::m_Advance()
{
    for (m_Depth = 0; !m_Path.empty(); m_Path.pop_back()) {
        Decision& last = m_Path.back();
        while (++last.chosen < last.options.size()) {
            if (!last.options[last.chosen].preempts || last.preemptions < m_Limits.preemptions) {
                return true;
            }
        }
    }
    return false;
}

bool Search::Run()
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    std::chrono::duration<double> took{};
    std::size_t schedules = 0;
    End end = End::Completed;
    bool goesOn = true;
    while (goesOn && end != End::Failed && schedules < m_Limits.schedules &&
           took.count() < m_Limits.seconds) {
        end = scheduler.Run(m_Scenario, *this, nullptr);
        schedules += end == End::Abandoned ? 0 : 1;
        if (end == End::Completed) {
            m_Outcomes.insert(scheduler.State());
        }
        goesOn = end == End::Failed || m_Advance();
        took = Clock::now() - start;
    }
    std::cout << std::left << std::setw(26) << m_Scenario.name << " bound " << m_Limits.preemptions
              << ": " << schedules << " schedules, " << m_Outcomes.size() << " outcomes, "
              << std::fixed << std::setprecision(2) << took.count() << " s"
              << (m_Reduces ? "" : ", plain") << std::endl;
    if (end == End::Failed) {
        const std::string decisions = m_Decisions();
        Replay(decisions);
        std::cout << "FAILED: " << m_Scenario.name << ": " << scheduler.failure
                  << "\nTo see it again: --replay '" << m_Scenario.name << "/" << BuildId() << "/"
                  << decisions << "'" << std::endl;
    } else if (goesOn) {
        std::cout << "FAILED: " << m_Scenario.name << ": not searched to the end within the limit"
                  << std::endl;
    }
    return !goesOn;
}

// Those that are not for the first option, as POSITION=OPTION,POSITION=OPTION...
std::string Search::m_Decisions() const
{
    std::string text;
    for (std::size_t i = 0; i < m_Path.size(); ++i) {
        if (m_Path[i].chosen != 0) {
            text += (text.empty() ? "" : ",") + std::to_string(i) + "=" +
                    std::to_string(m_Path[i].chosen);
        }
    }
    return text;
}

// Asks addr2line for the places of addresses: of each the innermost function in a source file of
// the code under test, neither in a header nor the explorer's.
std::map<std::uintptr_t, std::string> PlacesOf(const std::vector<Event>& events)
{
    std::map<std::uintptr_t, std::string> places;
    std::ostringstream command;
    command << "addr2line -a -C -f -i -p -e /proc/" << getpid() << "/exe" << std::hex;
    for (const Event& event : events) {
        for (const std::uintptr_t address : event.stack) {
            if (places.try_emplace(address).second) {
                command << " " << address - reinterpret_cast<std::uintptr_t>(&__executable_start);
            }
        }
    }
    FILE* const output = popen((command.str() + " 2>/dev/null").c_str(), "r");
    std::uintptr_t address = 0;
    char line[2048];
    while (output != nullptr && std::fgets(line, sizeof line, output) != nullptr) {
        if (line[0] == '0') {
            address = std::strtoul(line, nullptr, 16) +
                      reinterpret_cast<std::uintptr_t>(&__executable_start);
        }
        const char* const file = std::strstr(line, " at /");
        std::string& place = places[address];
        if (place.empty() && file != nullptr && std::strstr(file, ".cpp:") != nullptr &&
            std::strstr(file, "/explorer/") == nullptr) {
            std::string function(line, std::strcspn(line, "("));
            function.erase(0, function.rfind(' ') + 1);
            place = function.substr(function.rfind(':') + 1) + "  " + (std::strrchr(file, '/') + 1);
            place.erase(place.find_first_of(" \n", place.find(".cpp:")));
        }
    }
    if (output != nullptr) {
        pclose(output);
    }
    return places;
}

bool Search::Replay(const std::string& decisions)
{
    std::istringstream text(decisions);
    std::size_t position = 0;
    std::size_t chosen = 0;
    for (char equals = 0, comma = 0; text >> position >> equals >> chosen; text >> comma) {
        m_Replayed[position] = chosen;
    }
    m_Depth = 0;
    std::vector<Event> events;
    const End end = scheduler.Run(m_Scenario, *this, &events);
    auto places = PlacesOf(events);
    int thread = 0;
    for (const Event& event : events) {
        std::string place = event.place;
        for (auto at = event.stack.begin(); place.empty() && at != event.stack.end(); ++at) {
            place = places[*at];
        }
        std::cout << std::left << std::setw(12)
                  << (event.thread + 1 == thread ? ""
                                                 : "thread " + std::to_string(event.thread + 1))
                  << std::setw(64) << place << event.what << "\n";
        thread = event.thread + 1;
    }
    if (!m_Replayed.empty() || !text.eof()) {
        throw CLI::ValidationError("these are no decisions of this scenario: " + decisions);
    }
    return end == End::Completed;
}

// Whether a plain search finds the same, and takes each schedule.
bool Compare(const Scenario& scenario, const Search::Limits& limits)
{
    Search plain(scenario, limits, false);
    Search reduced(scenario, limits, true);
    if (!plain.Run() || !reduced.Run()) {
        return false;
    }
    const bool same = plain.Outcomes() == reduced.Outcomes();
    if (!same) {
        std::cout << "FAILED: " << scenario.name << ": the plain search has other outcomes\n";
    }
    return same;
}

bool ReplayText(const std::string& text)
{
    const std::size_t build = text.find('/');
    const std::size_t decisions = text.find('/', build + 1);
    if (decisions == std::string::npos) {
        throw CLI::ValidationError(
            "--replay needs SCENARIO/BUILD/DECISIONS, as a search prints it");
    }
    const Scenario& scenario = FindScenario(text.substr(0, build));
    if (text.substr(build + 1, decisions - build - 1) != BuildId()) {
        throw CLI::ValidationError("the schedule is of another build; this one is " + BuildId());
    }
    const bool fine = Search(scenario, {}, true).Replay(text.substr(decisions + 1));
    std::cout << (fine ? "All promises hold in this schedule." : "FAILED: " + scheduler.failure)
              << "\n";
    return fine;
}

bool Main(int count, char** arguments)
{
    CLI::App app(
        "Runs each scenario, or those named, under every schedule. Exits with 0 if all "
        "promises hold, with 1 if not, or a search did not end, with 2 if it cannot begin.");
    Search::Limits limits;
    bool plain = false;
    bool compare = false;
    bool list = false;
    std::string replay;
    std::vector<std::string> names;
    app.add_option("--bound", limits.preemptions, "Preemptions at most")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--limit", limits.schedules, "Fail if there are more schedules")
        ->check(CLI::PositiveNumber);
    app.add_option("--seconds", limits.seconds, "Fail if a search takes longer")
        ->check(CLI::PositiveNumber);
    app.add_flag("--plain", plain,
                 "Take the schedules, too, that only repeat others in another order");
    app.add_flag("--compare", compare, "Search in both ways, and compare what was found");
    app.add_flag("--list", list, "List the scenarios");
    app.add_option("--replay", replay, "Run one schedule again, and print it");
    app.add_option("SCENARIO", names);
    try {
        app.parse(count, arguments);
        std::vector<const Scenario*> scenarios;
        for (const Scenario* all = firstScenario; names.empty() && all != nullptr;
             all = all->next) {
            scenarios.insert(scenarios.begin(), all);
        }
        for (const std::string& name : names) {
            scenarios.push_back(&FindScenario(name));
        }
        if (!replay.empty()) {
            return ReplayText(replay);
        }
        bool fine = true;
        for (const Scenario* const scenario : scenarios) {
            if (list) {
                std::cout << std::left << std::setw(26) << scenario->name << scenario->about
                          << "\n";
            } else {
                fine = (compare ? Compare(*scenario, limits)
                                : Search(*scenario, limits, !plain).Run()) &&
                       fine;
            }
        }
        return fine;
    } catch (const CLI::ParseError& error) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs.
        std::exit(app.exit(error) == 0 ? 0 : WrongCommand);
    }
}

// If the code under test crashes, it breaks a promise.
void FailBySignal(int number)
{
    if (!scheduler.active) {
        std::fputs("the explorer itself fails\n", stderr);
        std::_Exit(BrokenPromise);
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs.
    scheduler.Fail(std::string("the process would end: ") + strsignal(number));
}

void FailByException()
{
    scheduler.Fail("the process would end: nobody catches an exception");
}

}  // namespace

Scenario::Scenario(const char* ownName, const char* ownAbout, void (*ownRun)(), int wakeUps,
                   int failures)
    : name(ownName),
      about(ownAbout),
      run(ownRun),
      spuriousWakeUps(wakeUps),
      threadsThatCannotStart(failures),
      next(firstScenario)
{
    firstScenario = this;
}

}  // namespace EXPLORER

int main(int count, char** arguments)
{
    static char stack[64 << 10];
    stack_t alternate = {};
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof stack;
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_handler = &EXPLORER::FailBySignal;
    action.sa_flags = SA_ONSTACK | SA_NODEFER;
    for (const int number : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
        sigaction(number, &action, nullptr);
    }
    std::set_terminate(&EXPLORER::FailByException);
    return EXPLORER::Main(count, arguments) ? 0 : EXPLORER::BrokenPromise;
}
