#include "Trial.h"

#include <AsyncTransferAgentManager.h>
#include <dirent.h>
#include <dlog.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <iterator>
#include <sstream>
#include <string_view>
#include <thread>

#include "Patience.h"

// In an AddressSanitizer build: looks for what nobody can free any more, beyond C++ allocations.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();  // NOLINT: its name

using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using Request = ITransferAgentManager::TransferConfiguration;
using BytesPtr = std::unique_ptr<ITransferHandler::Bytes>;

namespace {

// Ends the trial's process: its parent reports a trial without an outcome.
[[noreturn]] void GiveUpWaiting(const char* awaited)
{
    std::fprintf(stderr, "gave up waiting after %d s for %s\n", static_cast<int>(Patience.count()),
                 awaited);
    std::abort();
}

// Writes down what is delivered, without an allocation of its own.
class Client
{
public:
    explicit Client(Outcome& outcome) : m_Outcome(outcome) { sem_init(&m_Completed, 0, 0); }
    ~Client() { sem_destroy(&m_Completed); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Watch(Request& request)
    {
        request.headerCallback = [this](const BytesPtr& chunk, void*) {
            if (chunk) {
                Append(m_Outcome.header, m_HeaderLength, *chunk);
            }
        };
        request.dataCallback = [this](const BytesPtr& chunk, void*) {
            if (chunk) {
                Append(m_Outcome.body, m_Outcome.length, *chunk);
            }
        };
        request.completeCallback = [this](const ITransferHandler::Result& result, void*) {
            m_Outcome.success = result.success;
            m_Outcome.hasCode = result.httpCode != nullptr;
            m_Outcome.code = result.httpCode ? *result.httpCode : 0;
            ++m_Completions;
            sem_post(&m_Completed);
        };
    }

    void WaitForCompletion()
    {
        timespec end = {};
        clock_gettime(CLOCK_MONOTONIC, &end);
        end.tv_sec += static_cast<time_t>(Patience.count());
        while (sem_clockwait(&m_Completed, CLOCK_MONOTONIC, &end) != 0) {
            if (errno == ETIMEDOUT) {
                GiveUpWaiting("the complete callback");
            }
        }
    }

    int Completions() const { return m_Completions; }

private:
    // As much as there is room for, with a zero byte after it.
    template <std::size_t size>
    static void Append(char (&text)[size], std::size_t& length,
                       const ITransferHandler::Bytes& chunk)
    {
        if (length < size - 1) {
            std::copy_n(chunk.data(), std::min(chunk.size(), size - 1 - length), text + length);
        }
        length += chunk.size();
    }

    sem_t m_Completed = {};
    Outcome& m_Outcome;
    std::size_t m_HeaderLength = 0;
    std::atomic<int> m_Completions{0};
};

// Without a C++ allocation.
int CountThreads()
{
    DIR* const threads = opendir("/proc/self/task");
    int count = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads this folder
    while (const dirent* const entry = readdir(threads)) {
        count += entry->d_name[0] != '.';
    }
    closedir(threads);
    return count;
}

// A worker lives a little longer than its transfer.
void WaitForWorkersToEnd()
{
    const auto end = std::chrono::steady_clock::now() + Patience;
    while (CountThreads() > 1) {
        if (std::chrono::steady_clock::now() > end) {
            GiveUpWaiting("the workers to end");
        }
        std::this_thread::yield();
    }
}

std::unique_ptr<Request> MakeRequest(const Scenario& scenario)
{
    auto request = std::make_unique<Request>();
    static_cast<ITransferHandler::Configuration&>(*request) = scenario.pattern;
    request->segmented = scenario.pattern.segmented;
    request->handlerFactory = scenario.makeFactory();
    return request;
}

std::unique_ptr<Request> MakeNextRequest(const Scenario& scenario)
{
    auto request = std::make_unique<Request>();
    request->url = scenario.nextUrl;
    request->handlerFactory = scenario.makeFactory();
    return request;
}

// Whether it succeeds, with a whole body.
bool Perform(ITransferAgentManager& agent, std::unique_ptr<Request> request)
{
    Outcome outcome{};
    Client client(outcome);
    client.Watch(*request);
    agent.RequestTransfer(std::move(request));
    client.WaitForCompletion();
    WaitForWorkersToEnd();
    return client.Completions() == 1 && outcome.success && outcome.length == BodyLength;
}

// What the process of the trial shares with its parent, and with its own end by an exception.
Outcome* s_Outcome = nullptr;
const Fault* s_Fault = nullptr;
ITransferAgentManager* s_Agent = nullptr;
std::atomic<bool> s_UnhandledExceptionLogged{false};
std::atomic<bool> s_ReasonLogged{false};

void Disarm()
{
    if (const char* const failed = s_Fault->disarm()) {
        std::strncpy(s_Outcome->failed, failed, sizeof s_Outcome->failed - 1);
    }
}

const char* PerformWithFault(ITransferAgentManager& agent, const Scenario& scenario, long number)
{
    Client client(*s_Outcome);
    std::unique_ptr<Request> request = MakeRequest(scenario);
    client.Watch(*request);
    s_Fault->arm(number);
    bool refused = false;
    try {
        agent.RequestTransfer(std::move(request));
        client.WaitForCompletion();
    } catch (const std::exception&) {
        refused = true;
    }
    WaitForWorkersToEnd();
    Disarm();
    if (refused) {
        return "refused";
    }
    return client.Completions() == 1 ? "over" : "COMPLETED TWICE";
}

const char* EndingByException()
{
    if (!s_UnhandledExceptionLogged && !s_ReasonLogged) {
        return "ends the process at once";
    }
    if (!s_UnhandledExceptionLogged || !s_ReasonLogged) {
        return "HALF THE LINES ARE MISSING";
    }
    // The exception has left the worker's body: no lock is held, and the job is still there to be
    // cancelled.
    if (!s_Agent->CancelTransfer(0)) {
        return "THE JOB IS GONE";
    }
    return s_Fault->livesInTransfers && s_Fault->live() != 0 ? "LEAKED" : "ends the process";
}

[[noreturn]] void ExitAfterAnException()
{
    Disarm();
    s_Outcome->ending = EndingByException();
    _exit(0);
}

const char* TryHere(const Scenario& scenario, long number) noexcept
{
    alarm(60);  // ends the process if anything hangs
    std::set_terminate(&ExitAfterAnException);

    if (!s_Fault->livesInTransfers) {
        Perform(*AsyncTransferAgentManager::Create(), MakeRequest(scenario));
    }
    const long before = s_Fault->live();

    std::unique_ptr<ITransferAgentManager> agent = AsyncTransferAgentManager::Create();
    s_Agent = agent.get();
    const char* const ending = PerformWithFault(*agent, scenario, number);
    if (agent->CancelTransfer(0)) {
        return "THE JOB IS LEFT";
    }
    if (!Perform(*agent, MakeNextRequest(scenario))) {
        return "THE NEXT REQUEST FAILED";
    }
    agent.reset();
    if (s_Fault->live() != before) {
        return "LEAKED";
    }
    if (__lsan_do_recoverable_leak_check && __lsan_do_recoverable_leak_check() != 0) {
        return "LEAKED";
    }
    return ending;
}

// Memory that a child process shares.
class SharedOutcome
{
public:
    SharedOutcome()
        : m_Outcome(static_cast<Outcome*>(mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE,
                                               MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        m_Outcome->ending = "NO END";
    }
    SharedOutcome(const SharedOutcome&) = delete;
    SharedOutcome& operator=(const SharedOutcome&) = delete;
    ~SharedOutcome() { munmap(m_Outcome, sizeof(Outcome)); }

    Outcome& Get() { return *m_Outcome; }

private:
    Outcome* m_Outcome;
};

std::vector<std::string> SeenLines(const Outcome& outcome)
{
    std::vector<std::string> lines;
    std::istringstream header(outcome.header);
    std::istringstream body(outcome.body);
    for (std::string line; std::getline(header, line);) {
        if (line.rfind("X-Seen", 0) == 0) {
            lines.push_back(line);
        }
    }
    for (std::string line; std::getline(body, line);) {
        lines.push_back(line);
    }
    for (std::string& line : lines) {
        line.erase(line.find_last_not_of('\r') + 1);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

// The lines of one outcome that the other does not have, each after the sign.
std::string Difference(const Outcome& one, const Outcome& other, const char* sign)
{
    const std::vector<std::string> lines = SeenLines(one);
    const std::vector<std::string> others = SeenLines(other);
    std::vector<std::string> difference;
    std::set_difference(lines.begin(), lines.end(), others.begin(), others.end(),
                        std::back_inserter(difference));
    std::string text;
    for (const std::string& line : difference) {
        text.append(sign).append(line);
    }
    return text;
}

std::string Describe(const Outcome& outcome, const Outcome& whole)
{
    if (std::string_view(outcome.ending) != "over") {
        return outcome.ending;
    }
    const std::string code = outcome.hasCode ? " " + std::to_string(outcome.code) : "";
    if (!outcome.success) {
        return "failure" + code;
    }
    return "success" + code + Difference(whole, outcome, " -") + Difference(outcome, whole, " +");
}

}  // namespace

Outcome Try(const Scenario& scenario, const Fault& fault, long number)
{
    SharedOutcome shared;
    s_Outcome = &shared.Get();
    s_Fault = &fault;
    const pid_t process = fork();
    if (process == 0) {
        s_Outcome->ending = TryHere(scenario, number);
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    return shared.Get();
}

Endings FailEach(const Scenario& scenario, const Fault& fault)
{
    const Outcome whole = Try(scenario, fault, 0);
    Endings endings{{"nothing", Describe(whole, whole)}};
    for (long number = 1; !::testing::Test::HasFailure(); ++number) {
        const Outcome outcome = Try(scenario, fault, number);
        if (outcome.failed[0] == '\0') {
            break;
        }
        endings.emplace_back(outcome.failed, Describe(outcome, whole));
    }
    return endings;
}

extern "C" __attribute__((visibility("default"))) int __dlog_print(int, int, const char*,
                                                                   const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char line[512];
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (std::strstr(line, "Unhandled exception")) {
        s_UnhandledExceptionLogged = true;
    } else if (s_Fault && std::strstr(line, s_Fault->reason)) {
        s_ReasonLogged = true;
    }
    return 0;
}
