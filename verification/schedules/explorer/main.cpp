#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Report.h"
#include "Search.h"

namespace {

using namespace EXPLORER;

constexpr int ExitFailure = 1;
constexpr int ExitUsage = 2;

constexpr char Usage[] =
    R"(schedules [OPTIONS] [SCENARIO...]: runs each scenario, or those named, under every schedule.

  --bound N        with at most N preemptions (2)
  --plain          try each schedule, also those that only repeat others in another order
  --compare        search plainly and reduced, and compare what was found
  --limit N        fail if a search has not ended after N schedules
  --seconds N      fail if a search has not ended after N seconds
  --replay STRING  run one schedule again and print it; exits with 1 if it breaks a promise
  --list           list the scenarios

Exits with 0 if all promises hold, with 1 if one is broken or a search did not end, with 2 if the
command is wrong.
)";

[[noreturn]] void ExitWith(int status, const std::string& message)
{
    std::fflush(stdout);
    std::fprintf(stderr, "schedules: %s\n", message.c_str());
    std::_Exit(status);
}

struct Command
{
    Search::Settings settings;
    bool compare = false;
    bool list = false;
    std::string replay;
    std::vector<const Scenario*> scenarios;
};

std::uint64_t ParseNumber(const std::string& option, const char* text)
{
    char* end = nullptr;
    const std::uint64_t number = text != nullptr ? std::strtoull(text, &end, 10) : 0;
    if (text == nullptr || *text < '0' || *text > '9' || *end != '\0') {
        ExitWith(ExitUsage, option + " needs a whole number, 0 or greater");
    }
    return number;
}

Command Parse(char** argument)
{
    Command command;
    while (*++argument != nullptr) {
        const std::string word = *argument;
        if (word == "--bound") {
            command.settings.preemptions = static_cast<int>(ParseNumber(word, *++argument));
        } else if (word == "--limit") {
            command.settings.mostSchedules = ParseNumber(word, *++argument);
        } else if (word == "--seconds") {
            command.settings.mostSeconds = static_cast<double>(ParseNumber(word, *++argument));
        } else if (word == "--plain") {
            command.settings.reduce = false;
        } else if (word == "--compare") {
            command.compare = true;
        } else if (word == "--list") {
            command.list = true;
        } else if (word == "--replay" && argument[1] != nullptr) {
            command.replay = *++argument;
        } else if (const Scenario* const scenario = Scenario::Find(word)) {
            command.scenarios.push_back(scenario);
        } else {
            ExitWith(ExitUsage, word[0] == '-'
                                    ? word + " is no option, or its value is missing\n" + Usage
                                    : "there is no scenario " + word + "; see --list");
        }
        if (*argument == nullptr) {
            break;
        }
    }
    if (command.scenarios.empty()) {
        for (const Scenario* all = Scenario::First(); all != nullptr; all = all->next) {
            command.scenarios.insert(command.scenarios.begin(), all);
        }
    }
    return command;
}

int RunReplay(const std::string& text)
{
    const Scenario* scenario = nullptr;
    try {
        Replay replay(Schedule::Parse(text, scenario));
        const RunResult result = PrintRun(*scenario, replay);
        if (!replay.IsFaithful()) {
            ExitWith(ExitUsage, "the decisions are of another scenario, or were cut short");
        }
        std::printf("%s\n", result.end == RunResult::Failed
                                ? result.failure.c_str()
                                : "All promises hold in this schedule.");
        return result.end == RunResult::Failed ? ExitFailure : 0;
    } catch (const std::invalid_argument& wrong) {
        ExitWith(ExitUsage, wrong.what());
    }
}

Search::Report SearchOne(const Scenario& scenario, const Search::Settings& settings)
{
    Search search(scenario, settings);
    Search::Report report = search.Run();
    std::printf("%-34s bound %d: %9llu schedules, %8llu outcomes, %7.2f s%s\n", scenario.name,
                settings.preemptions, static_cast<unsigned long long>(report.schedules),
                static_cast<unsigned long long>(report.outcomes.size()), report.seconds,
                settings.reduce ? "" : ", plain");
    std::fflush(stdout);
    return report;
}

bool IsFine(const Scenario& scenario, const Search::Report& report)
{
    if (!report.failure.empty()) {
        Replay replay(report.failed);
        PrintRun(scenario, replay);
        std::printf("FAILED: %s: %s\nTo see it again: schedules --replay '%s'\n", scenario.name,
                    report.failure.c_str(), report.failed.Text(scenario).c_str());
    } else if (!report.ended) {
        std::printf("FAILED: %s: the search did not end within its limit\n", scenario.name);
    }
    return report.failure.empty() && report.ended;
}

// Whether the reduced search found what the plain one did.
bool Compare(const Scenario& scenario, Search::Settings settings)
{
    settings.reduce = false;
    const Search::Report plain = SearchOne(scenario, settings);
    settings.reduce = true;
    const Search::Report reduced = SearchOne(scenario, settings);
    if (!IsFine(scenario, plain) || !IsFine(scenario, reduced)) {
        return false;
    }
    if (plain.outcomes != reduced.outcomes) {
        std::printf("FAILED: %s: the reduced search found other outcomes\n", scenario.name);
        return false;
    }
    return true;
}

// A crash of the code under test breaks a promise, too.
void FailBySignal(int number)
{
    if (!scheduler.IsActive()) {
        ExitWith(ExitFailure, std::string("the explorer itself fails: ") + strsignal(number));
    }
    scheduler.Fail(std::string("the process would end: ") + strsignal(number));
}

void HandleCrashes()
{
    static char stack[64 << 10];
    stack_t alternate = {};
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof stack;
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_handler = &FailBySignal;
    action.sa_flags = SA_ONSTACK | SA_NODEFER;
    for (const int number : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
        sigaction(number, &action, nullptr);
    }
    std::set_terminate(
        [] { scheduler.Fail("the process would end: an exception has no handler"); });
}

}  // namespace

int main(int, char** arguments)
{
    const Command command = Parse(arguments);
    if (command.list) {
        for (const Scenario* const scenario : command.scenarios) {
            std::printf("%-34s %s\n", scenario->name, scenario->about);
        }
        return 0;
    }
    HandleCrashes();
    if (!command.replay.empty()) {
        return RunReplay(command.replay);
    }
    bool fine = true;
    for (const Scenario* const scenario : command.scenarios) {
        fine = (command.compare ? Compare(*scenario, command.settings)
                                : IsFine(*scenario, SearchOne(*scenario, command.settings))) &&
               fine;
    }
    return fine ? 0 : ExitFailure;
}
