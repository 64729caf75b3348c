// Every allocation of a whole request fails once. Each time a process of its own makes the request:
// what is documented to end the process does.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <QXCurlEasyHandlerFactory.h>
#include <dirent.h>
#include <dlog.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <new>
#include <thread>

#include "FailingAllocator.h"
#include "IndexedBytes.h"
#include "ServerTest.h"

// In an AddressSanitizer build: looks for what nobody can free any more, beyond C++ allocations.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();  // NOLINT: its name

using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;
using Request = ITransferAgentManager::TransferConfiguration;

namespace {

constexpr std::size_t BodyLength = 100000;

// How a request ended whose n-th allocation failed.
enum class Ending : int
{
    NothingFailed = 10,  // it has fewer allocations
    Refused,             // RequestTransfer raised std::bad_alloc
    Failed,              // its result says so
    Succeeded,           // the whole body was delivered all the same
    EndedTheProcess,     // an exception reached the end of the worker and was logged
    // What must not be:
    PartCalledWhole = 20,
    NextRequestFailed,
    CompletedTwice,
    Leaked,
    EndedTheProcessWithoutALine,
    JobGone,
    JobLeft,
};

std::atomic<bool> s_UnhandledExceptionLogged{false};
std::atomic<bool> s_ReasonLogged{false};

// Counts what is delivered, without an allocation of its own.
class Client
{
public:
    Client() { sem_init(&m_Completed, 0, 0); }
    ~Client() { sem_destroy(&m_Completed); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    std::unique_ptr<Request> MakeRequest(const Request& pattern,
                                         std::unique_ptr<ITransferHandlerFactory> factory)
    {
        auto request = std::make_unique<Request>();
        static_cast<ITransferHandler::Configuration&>(*request) = pattern;
        request->segmented = pattern.segmented;
        request->handlerFactory = std::move(factory);
        request->headerCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {};
        request->dataCallback = [this](std::unique_ptr<ITransferHandler::Bytes> chunk, void*) {
            m_Length += chunk ? chunk->size() : 0;
        };
        request->completeCallback = [this](ITransferHandler::Result result, void*) {
            m_Success = result.success;
            ++m_Completions;
            sem_post(&m_Completed);
        };
        return request;
    }

    void WaitForCompletion()
    {
        while (sem_wait(&m_Completed) != 0) {
        }
    }

    Ending Outcome() const
    {
        if (m_Completions != 1) {
            return Ending::CompletedTwice;
        }
        if (!m_Success) {
            return Ending::Failed;
        }
        return m_Length == BodyLength ? Ending::Succeeded : Ending::PartCalledWhole;
    }

private:
    sem_t m_Completed = {};
    std::atomic<std::size_t> m_Length{0};
    std::atomic<bool> m_Success{false};
    std::atomic<int> m_Completions{0};
};

struct Scenario
{
    Request pattern;
    std::unique_ptr<ITransferHandlerFactory> (*makeFactory)();
};

template <typename Factory>
std::unique_ptr<ITransferHandlerFactory> Make()
{
    return std::make_unique<Factory>();
}

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
    while (CountThreads() > 1) {
        std::this_thread::yield();
    }
}

Ending Perform(ITransferAgentManager& agent, const Scenario& scenario)
{
    Client client;
    std::unique_ptr<Request> request = client.MakeRequest(scenario.pattern, scenario.makeFactory());
    agent.RequestTransfer(std::move(request));
    client.WaitForCompletion();
    WaitForWorkersToEnd();
    return client.Outcome();
}

Ending PerformWithFailure(ITransferAgentManager& agent, const Scenario& scenario, long number)
{
    Client client;
    std::unique_ptr<Request> request = client.MakeRequest(scenario.pattern, scenario.makeFactory());
    FAILING_ALLOCATOR::Arm(number);
    bool refused = false;
    try {
        agent.RequestTransfer(std::move(request));
        client.WaitForCompletion();
    } catch (const std::bad_alloc&) {
        refused = true;
    }
    WaitForWorkersToEnd();
    const bool failed = FAILING_ALLOCATOR::Disarm();
    if (refused) {
        return Ending::Refused;
    }
    return failed ? client.Outcome() : Ending::NothingFailed;
}

// The agent whose first request is the one that an allocation fails of.
ITransferAgentManager* s_Agent = nullptr;

// The exception has left the worker's body: it is on the log, no lock is held, and the job is still
// there to be cancelled.
[[noreturn]] void ExitAfterTheExceptionOfAWorker()
{
    FAILING_ALLOCATOR::Disarm();
    if (!s_UnhandledExceptionLogged || !s_ReasonLogged) {
        _exit(static_cast<int>(Ending::EndedTheProcessWithoutALine));
    }
    const bool found = s_Agent->CancelTransfer(0);
    _exit(static_cast<int>(found ? Ending::EndedTheProcess : Ending::JobGone));
}

// In a process of its own.
Ending Try(const Scenario& scenario, long number) noexcept
{
    alarm(60);  // ends the process if anything hangs
    std::set_terminate(&ExitAfterTheExceptionOfAWorker);

    // What is made once in a process is made now.
    Perform(*AsyncTransferAgentManager::Create(), scenario);
    WaitForWorkersToEnd();
    const long before = FAILING_ALLOCATOR::Live();

    std::unique_ptr<ITransferAgentManager> agent = AsyncTransferAgentManager::Create();
    s_Agent = agent.get();
    const Ending ending = PerformWithFailure(*agent, scenario, number);
    if (agent->CancelTransfer(0)) {
        return Ending::JobLeft;
    }
    if (Perform(*agent, scenario) != Ending::Succeeded) {
        return Ending::NextRequestFailed;
    }
    agent.reset();
    if (FAILING_ALLOCATOR::Live() != before) {
        return Ending::Leaked;
    }
    if (__lsan_do_recoverable_leak_check && __lsan_do_recoverable_leak_check() != 0) {
        return Ending::Leaked;
    }
    return ending;
}

Ending TryInAProcess(const Scenario& scenario, long number)
{
    const pid_t process = fork();
    if (process == 0) {
        _exit(static_cast<int>(Try(scenario, number)));
    }
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    return static_cast<Ending>(WEXITSTATUS(status));
}

// The number of requests that ended in each way.
std::map<Ending, int> FailEachAllocationOf(const Scenario& scenario)
{
    std::map<Ending, int> endings;
    for (long number = 1; !::testing::Test::HasFailure(); ++number) {
        const Ending ending = TryInAProcess(scenario, number);
        ++endings[ending];
        if (ending == Ending::NothingFailed) {
            break;
        }
        EXPECT_GE(static_cast<int>(ending), static_cast<int>(Ending::Refused)) << number;
        EXPECT_LE(static_cast<int>(ending), static_cast<int>(Ending::EndedTheProcess)) << number;
    }
    return endings;
}

class AllocationFailures : public ServerTest<OddServer>
{
protected:
    static Scenario OverHttp(std::unique_ptr<ITransferHandlerFactory> (*makeFactory)(),
                             bool segmented)
    {
        Scenario scenario{{}, makeFactory};
        scenario.pattern.url = Url("/bytes/" + std::to_string(BodyLength));
        scenario.pattern.method = ITransferHandler::Configuration::HttpMethod::EhttpGet;
        scenario.pattern.headers = {{"A-header-that-is-too-long-for-a-short-string", "a value"}};
        scenario.pattern.segmented = segmented;
        return scenario;
    }

    static void ExpectEachToBeAnswered(const Scenario& scenario)
    {
        const std::map<Ending, int> endings = FailEachAllocationOf(scenario);
        for (const auto& [ending, count] : endings) {
            RecordProperty(std::to_string(static_cast<int>(ending)), count);
        }
        EXPECT_GT(endings.count(Ending::Refused), 0U);
        EXPECT_GT(endings.count(Ending::EndedTheProcess), 0U);
    }
};

}  // namespace

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
    } else if (std::strstr(line, "std::bad_alloc")) {
        s_ReasonLogged = true;
    }
    return 0;
}

TEST_F(AllocationFailures, OfAFileTransferEachIsAnswered)
{
    const TemporaryFolder folder;
    Scenario scenario{{}, &Make<VORTAN_MW::FileReaderFactory>};
    scenario.pattern.url = folder.FileWith(IndexedBytes(BodyLength));
    ExpectEachToBeAnswered(scenario);
}

TEST_F(AllocationFailures, OfADelayedTransferEachIsAnswered)
{
    const TemporaryFolder folder;
    Scenario scenario{{}, &Make<VORTAN_MW::FileReaderFactory>};
    scenario.pattern.url = folder.FileWith(IndexedBytes(BodyLength));
    scenario.pattern.randomDelay = ITransferHandler::Configuration::RandomDelay{0, 0};
    ExpectEachToBeAnswered(scenario);
}

TEST_F(AllocationFailures, OfAPlainDownloadEachIsAnswered)
{
    ExpectEachToBeAnswered(OverHttp(&Make<VORTAN_MW::CurlEasyHandlerFactory>, false));
}

TEST_F(AllocationFailures, OfASegmentedDownloadEachIsAnswered)
{
    ExpectEachToBeAnswered(OverHttp(&Make<VORTAN_MW::CurlEasyHandlerFactory>, true));
}

TEST_F(AllocationFailures, OfAPlainDownloadThroughTheWrapperEachIsAnswered)
{
    ExpectEachToBeAnswered(OverHttp(&Make<VORTAN_MW::QXCurlEasyHandlerFactory>, false));
}

TEST_F(AllocationFailures, OfASegmentedDownloadThroughTheWrapperEachIsAnswered)
{
    ExpectEachToBeAnswered(OverHttp(&Make<VORTAN_MW::QXCurlEasyHandlerFactory>, true));
}
