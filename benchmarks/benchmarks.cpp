// What going through the agent costs, beside the same work done without it. See
// docs/performance.md for how to run this and how to read it.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <HttpSession.h>
#include <QXCurlEasyHandlerFactory.h>
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "AgentClient.h"
#include "LoopbackServer.h"
#include "NginxServer.h"
#include "Peers.h"
#include "PlainManager.h"
#include "RatioReporter.h"
#include "ThreadEnd.h"
#include "TrustedAuthority.h"

namespace {

using Factory = std::unique_ptr<VORTAN_MW::ITransferHandlerFactory>;

constexpr std::size_t MiB = std::size_t{1024} * 1024;
constexpr std::size_t LargeBody = 256 * MiB;
constexpr std::size_t TlsBody = 240 * MiB;
constexpr std::size_t SmallBody = 1024;
constexpr std::size_t SmallRequests = 64;

const std::vector<Comparison> Comparisons = {
    {"streamed", "libcurl", "-", ">= 0.97", "protocol"},
    {"streamed", "libcurl-vectors", "<= 1.02", "-", "protocol"},
    {"vendor", "libcurl", "-", ">= 0.97", ""},
    {"plain", "libcurl", "<= 0.7", ">= 0.97", ""},
    {"unannounced", "libcurl", "<= 1.05", ">= 0.97", ""},
    {"put", "libcurl", "<= 1.15", "-", ""},
    {"post", "libcurl", "<= 1.15", "-", ""},
    {"small", "libcurl", "-", "-", "libcurl-detached"},
    {"small", "libcurl-detached", "<= 1.05", "-", "protocol"},
    {"dispatch", "thread", "<= 1.3", "-", "protocol"},
    {"four", "thread", "<= 1.7", "-", "protocol"},
    {"shutdown", "threads", "<= 1.2", "-", "protocol"},
    {"file", "read", "<= 1.03", "-", ""},
    {"tls-small", "libcurl", "-", "-", ""},
    {"tls-small-folder", "libcurl", "-", "-", ""},
    {"tls-stream", "libcurl", "-", "-", "libcurl-vectors"},
    {"tls-stream-folder", "libcurl", "-", "-", "libcurl-vectors"},
    {"kept", "libcurl", "<= 0.7", "-", ""},
    {"session", "handler", "<= 1.05", "-", ""},
};

using Agent = std::unique_ptr<VORTAN_MW::ITransferAgentManager>;

Agent MakeAgent()
{
    return VORTAN_MW::AsyncTransferAgentManager::Create();
}

Agent MakePlainManager()
{
    return std::make_unique<PlainManager>();
}

// Succeeds at once, without a byte.
class EmptyHandler : public VORTAN_MW::ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail&) const override { return {true, nullptr}; }
};

class EmptyHandlerFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override
    {
        return std::make_unique<EmptyHandler>();
    }
};

template <typename T>
Factory Make()
{
    return std::make_unique<T>();
}

// A file that is gone when this is.
class TemporaryFile
{
public:
    explicit TemporaryFile(std::size_t size)
    {
        const int file = mkstemp(m_Path.data());
        const std::vector<char> block(MiB, 'x');
        for (std::size_t written = 0; file >= 0 && written < size; written += block.size()) {
            if (write(file, block.data(), block.size()) != static_cast<ssize_t>(block.size())) {
                throw std::runtime_error("cannot write " + m_Path);
            }
        }
        close(file);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { unlink(m_Path.c_str()); }

    const std::string& Path() const { return m_Path; }

private:
    std::string m_Path = "/tmp/vortan_benchmarks_XXXXXX";
};

void Expect(benchmark::State& state, bool right)
{
    if (!right) {
        state.SkipWithError("a transfer failed");
    }
}

void CountBytes(benchmark::State& state, std::size_t size)
{
    if (size > 0) {
        state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
    }
}

// One transfer of size bytes per iteration.
void ThroughAgent(benchmark::State& state, const std::string& url, Factory (*makeFactory)(),
                  AgentClient::Mode mode, std::size_t size, Agent (*makeAgent)())
{
    AgentClient client(makeAgent());
    while (state.KeepRunning()) {
        const bool success = client.Start(url, makeFactory(), mode).Join();
        Expect(state, success && client.TakeReceived() == size);
    }
    CountBytes(state, size);
}

// The same with the work done on a fresh thread, as the agent does it.
void OnThread(benchmark::State& state, const std::string& source,
              std::size_t (*work)(const std::string&), std::size_t size)
{
    while (state.KeepRunning()) {
        std::size_t received = 0;
        std::thread([&] { received = work(source); }).join();
        Expect(state, received == size);
    }
    CountBytes(state, size);
}

// The two over TLS, with the authorities in this file or folder. Each transfer loads them itself.
void TlsThroughAgent(benchmark::State& state, const std::string& authorities,
                     const std::string& url, AgentClient::Mode mode, std::size_t size)
{
    const TrustedAuthority authority(authorities);
    ThroughAgent(state, url, Make<VORTAN_MW::CurlEasyHandlerFactory>, mode, size, MakeAgent);
}

void TlsOnThread(benchmark::State& state, const std::string& authorities, const std::string& url,
                 std::size_t (*work)(const std::string&), std::size_t size)
{
    const TrustedAuthority authority(authorities);
    OnThread(state, url, work, size);
}

VORTAN_MW::KIT::TransferPolicy HttpPolicy()
{
    return VORTAN_MW::KIT::TransferPolicy().SetSchemes({"http"});
}

// Segmented transfers through a session of the transfer kit.
void ThroughSession(benchmark::State& state, const std::string& url, std::size_t size)
{
    VORTAN_MW::KIT::HttpSession session(HttpPolicy());
    AgentClient client;
    while (state.KeepRunning()) {
        const bool success =
            client.Start(url, session.MakeFactory(), AgentClient::Mode::Segmented).Join();
        Expect(state, success && client.TakeReceived() == size);
    }
    CountBytes(state, size);
}

using HttpMethod = AgentClient::HttpMethod;

// One upload per iteration. The client's own copy of the body is made before each, and freed within
// what is measured.
void UploadThroughAgent(benchmark::State& state, const std::string& url, const std::string& body,
                        HttpMethod method)
{
    AgentClient client;
    while (state.KeepRunning()) {
        state.PauseTiming();
        std::string own = body;
        state.ResumeTiming();
        auto factory = Make<VORTAN_MW::CurlEasyHandlerFactory>();
        const bool success = client.Upload(url, std::move(factory), std::move(own), method).Join();
        Expect(state, success);
    }
    CountBytes(state, body.size());
}

void UploadOnThread(benchmark::State& state, const std::string& url, const std::string& body,
                    std::size_t (*upload)(const std::string&, const std::string&))
{
    while (state.KeepRunning()) {
        state.PauseTiming();
        std::string own = body;
        state.ResumeTiming();
        std::size_t sent = 0;
        std::thread([&] {
            const std::string freed = std::move(own);
            sent = upload(url, freed);
        }).join();
        Expect(state, sent == body.size());
    }
    CountBytes(state, body.size());
}

constexpr std::size_t Sleepers = 4;
constexpr benchmark::IterationCount Shutdowns = 100;

// Long enough for the sleepers to have gone to sleep. If one has not, a round is a little cheaper.
void LetThemSleep()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

// Four transfers wait to be sent. What is measured is the end of their agent: it wakes the workers,
// which still perform their transfers, and joins them.
void ShutdownOfAgent(benchmark::State& state, Agent (*makeAgent)())
{
    while (state.KeepRunning()) {
        state.PauseTiming();
        auto client = std::make_unique<AgentClient>(makeAgent());
        for (std::size_t number = 0; number < Sleepers; ++number) {
            client->StartAfter(std::chrono::hours(1), Make<EmptyHandlerFactory>());
        }
        LetThemSleep();
        state.ResumeTiming();
        client.reset();
    }
}

class SleepingThread
{
public:
    SleepingThread() : m_Thread([this] { m_Sleep(); }) {}
    SleepingThread(const SleepingThread&) = delete;
    SleepingThread& operator=(const SleepingThread&) = delete;
    ~SleepingThread() { m_Thread.join(); }

    void Wake()
    {
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Over = true;
        }
        m_Woken.notify_one();
    }

private:
    void m_Sleep()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Woken.wait_for(lock, std::chrono::hours(1), [this] { return m_Over; });
    }

    std::mutex m_Mutex;
    std::condition_variable m_Woken;
    bool m_Over = false;
    std::thread m_Thread;
};

void ShutdownOfThreads(benchmark::State& state)
{
    while (state.KeepRunning()) {
        state.PauseTiming();
        auto threads = std::make_unique<std::array<SleepingThread, Sleepers>>();
        LetThemSleep();
        state.ResumeTiming();
        for (SleepingThread& thread : *threads) {
            thread.Wake();
        }
        threads.reset();
    }
}

void Finish(AgentClient::Transfer& transfer)
{
    if (transfer.Joinable()) {
        transfer.Join();
    }
}

void Finish(std::thread& thread)
{
    if (thread.joinable()) {
        thread.join();
    }
}

void Finish(std::shared_ptr<ThreadEnd>& thread)
{
    if (const auto ending = std::move(thread)) {
        ending->Wait();
    }
}

// Starts the small requests so that four of them are under way.
template <typename Start>
void FourAtATime(Start start)
{
    std::array<decltype(start()), 4> underWay;
    for (std::size_t number = 0; number < SmallRequests; ++number) {
        auto& slot = underWay[number % underWay.size()];
        Finish(slot);
        slot = start();
    }
    for (auto& slot : underWay) {
        Finish(slot);
    }
}

template <typename MakeFactory>
void SmallThroughFactories(benchmark::State& state, const std::string& url, MakeFactory makeFactory,
                           Agent (*makeAgent)() = MakeAgent)
{
    AgentClient client(makeAgent());
    while (state.KeepRunning()) {
        FourAtATime([&] { return client.Start(url, makeFactory(), AgentClient::Mode::Plain); });
        Expect(state, client.TakeReceived() == SmallRequests * SmallBody);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(SmallRequests));
}

void SmallThroughAgent(benchmark::State& state, const std::string& url, Agent (*makeAgent)())
{
    SmallThroughFactories(state, url, Make<VORTAN_MW::CurlEasyHandlerFactory>, makeAgent);
}

void SmallThroughSession(benchmark::State& state, const std::string& url)
{
    VORTAN_MW::KIT::HttpSession session(HttpPolicy());
    SmallThroughFactories(state, url, [&session] { return session.MakeFactory(); });
}

void SmallOnThreads(benchmark::State& state, const std::string& url)
{
    std::atomic<std::size_t> received{0};
    while (state.KeepRunning()) {
        FourAtATime([&] { return std::thread([&] { received += DownloadWithLibcurl(url); }); });
        Expect(state, received.exchange(0) == SmallRequests * SmallBody);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(SmallRequests));
}

// The least that an agent does around a request: the mutex is held while a thread is started, which
// takes it before it begins and after it is done; and the thread is detached.
void SmallOnDetachedThreads(benchmark::State& state, const std::string& url)
{
    std::atomic<std::size_t> received{0};
    std::mutex mutex;
    const auto work = [&](std::shared_ptr<ThreadEnd> ending) {
        ThreadEnd::TellAtExit(std::move(ending));
        std::unique_lock<std::mutex> lock(mutex);
        lock.unlock();
        received += DownloadWithLibcurl(url);
        lock.lock();
    };
    while (state.KeepRunning()) {
        FourAtATime([&] {
            auto ending = std::make_shared<ThreadEnd>();
            const std::lock_guard<std::mutex> lock(mutex);
            std::thread(work, ending).detach();
            return ending;
        });
        Expect(state, received.exchange(0) == SmallRequests * SmallBody);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(SmallRequests));
}

// Nothing but the dispatch, with four under way.
void DispatchFour(benchmark::State& state, Agent (*makeAgent)())
{
    AgentClient client(makeAgent());
    while (state.KeepRunning()) {
        FourAtATime([&] {
            return client.Start("nowhere", Make<EmptyHandlerFactory>(), AgentClient::Mode::Plain);
        });
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(SmallRequests));
}

void StartFourThreads(benchmark::State& state)
{
    while (state.KeepRunning()) {
        FourAtATime([] { return std::thread([] {}); });
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(SmallRequests));
}

// Process CPU time counts every thread. The rate is by the clock on the wall.
template <typename... Arguments>
benchmark::internal::Benchmark* Register(const std::string& name, Arguments... arguments)
{
    return benchmark::RegisterBenchmark(name.c_str(), arguments...)
        ->MeasureProcessCPUTime()
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
}

// Over TLS, named with this ending.
void RegisterTls(const NginxServer& server, const std::string& ending,
                 const std::string& authorities)
{
    using Mode = AgentClient::Mode;
    const std::string small = server.MakeFile(SmallBody);
    Register("tls-small" + ending + "/agent", TlsThroughAgent, authorities, small, Mode::Plain,
             SmallBody);
    Register("tls-small" + ending + "/libcurl", TlsOnThread, authorities, small,
             DownloadWithLibcurl, SmallBody);
    const std::string large = server.MakeFile(TlsBody);
    Register("tls-stream" + ending + "/agent", TlsThroughAgent, authorities, large, Mode::Segmented,
             TlsBody);
    Register("tls-stream" + ending + "/libcurl", TlsOnThread, authorities, large, StreamWithLibcurl,
             TlsBody);
    Register("tls-stream" + ending + "/libcurl-vectors", TlsOnThread, authorities, large,
             StreamWithLibcurlInVectors, TlsBody);
}

void RegisterTls(const NginxServer& server)
{
    if (server.IsInstalled()) {
        RegisterTls(server, "", server.Bundle());
        RegisterTls(server, "-folder", server.HashedFolder());
    }
}

// The workloads of the transfer kit. Requests on kept connections go to a server that keeps them.
void RegisterKit(const LoopbackServer& server, const LoopbackServer& keeping)
{
    const std::string large = server.Url(LargeBody);
    Register("kept/agent", SmallThroughSession, keeping.Url(SmallBody));
    Register("kept/libcurl", SmallOnThreads, server.Url(SmallBody));
    Register("session/agent", ThroughSession, large, LargeBody);
    Register("session/handler", ThroughAgent, large, Make<VORTAN_MW::CurlEasyHandlerFactory>,
             AgentClient::Mode::Segmented, LargeBody, MakeAgent);
}

void RegisterDispatch()
{
    constexpr std::size_t nothing = 0;
    const auto plain = AgentClient::Mode::Plain;
    Register("dispatch/agent", ThroughAgent, "nowhere", Make<EmptyHandlerFactory>, plain, nothing,
             MakeAgent);
    Register("dispatch/protocol", ThroughAgent, "nowhere", Make<EmptyHandlerFactory>, plain,
             nothing, MakePlainManager);
    Register(
        "dispatch/thread", OnThread, "nowhere",
        +[](const std::string&) -> std::size_t { return 0; }, nothing);
    Register("four/agent", DispatchFour, MakeAgent);
    Register("four/protocol", DispatchFour, MakePlainManager);
    Register("four/thread", StartFourThreads);
    Register("shutdown/agent", ShutdownOfAgent, MakeAgent)->Iterations(Shutdowns);
    Register("shutdown/protocol", ShutdownOfAgent, MakePlainManager)->Iterations(Shutdowns);
    Register("shutdown/threads", ShutdownOfThreads)->Iterations(Shutdowns);
}

void RegisterAll(const LoopbackServer& server, const TemporaryFile& file, const std::string& upload)
{
    using VORTAN_MW::CurlEasyHandlerFactory;
    using Mode = AgentClient::Mode;
    const std::string large = server.Url(LargeBody);
    const std::string small = server.Url(SmallBody);
    Register("streamed/agent", ThroughAgent, large, Make<CurlEasyHandlerFactory>, Mode::Segmented,
             LargeBody, MakeAgent);
    Register("streamed/protocol", ThroughAgent, large, MakePlainHandlerFactory, Mode::Segmented,
             LargeBody, MakePlainManager);
    Register("streamed/libcurl", OnThread, large, StreamWithLibcurl, LargeBody);
    Register("streamed/libcurl-vectors", OnThread, large, StreamWithLibcurlInVectors, LargeBody);
    Register("vendor/agent", ThroughAgent, large, Make<VORTAN_MW::QXCurlEasyHandlerFactory>,
             Mode::Segmented, LargeBody, MakeAgent);
    Register("vendor/libcurl", OnThread, large, StreamLikeTheWrapper, LargeBody);
    Register("plain/agent", ThroughAgent, large, Make<CurlEasyHandlerFactory>, Mode::Plain,
             LargeBody, MakeAgent);
    Register("plain/libcurl", OnThread, large, DownloadWithLibcurl, LargeBody);
    const std::string unannounced = server.UnannouncedUrl(LargeBody);
    Register("unannounced/agent", ThroughAgent, unannounced, Make<CurlEasyHandlerFactory>,
             Mode::Plain, LargeBody, MakeAgent);
    Register("unannounced/libcurl", OnThread, unannounced, DownloadWithLibcurl, LargeBody);
    const std::string target = server.Url(0);
    Register("put/agent", UploadThroughAgent, target, std::cref(upload), HttpMethod::EhttpPut);
    Register("put/libcurl", UploadOnThread, target, std::cref(upload), UploadWithLibcurl);
    Register("post/agent", UploadThroughAgent, target, std::cref(upload), HttpMethod::EhttpPost);
    Register("post/libcurl", UploadOnThread, target, std::cref(upload), PostWithLibcurl);
    Register("small/agent", SmallThroughAgent, small, MakeAgent);
    Register("small/protocol", SmallThroughAgent, small, MakePlainManager);
    Register("small/libcurl", SmallOnThreads, small);
    Register("small/libcurl-detached", SmallOnDetachedThreads, small);
    RegisterDispatch();
    Register("file/agent", ThroughAgent, file.Path(), Make<VORTAN_MW::FileReaderFactory>,
             Mode::Plain, LargeBody, MakeAgent);
    Register("file/read", OnThread, file.Path(), ReadIntoVector, LargeBody);
}

// The peak of a process that streams one body and does nothing else, in MiB; 0 after a failure.
double PeakMemoryOfStreaming(const std::string& url)
{
    const pid_t process = fork();
    if (process == 0) {
        const bool success =
            AgentClient()
                .Start(url, Make<VORTAN_MW::CurlEasyHandlerFactory>(), AgentClient::Mode::Segmented)
                .Join();
        _exit(success ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    rusage usage = {};
    wait4(process, &status, 0, &usage);
    return status == 0 ? static_cast<double>(usage.ru_maxrss) / 1024 : 0;
}

using Clock = std::chrono::steady_clock;

// Hands over chunks until one is refused, and then tells when that was.
class EndlessHandler : public VORTAN_MW::ITransferHandler
{
public:
    explicit EndlessHandler(std::promise<Clock::time_point>& refused) : m_Refused(refused) {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        while (detail.dataCallback(std::make_unique<Bytes>(ChunkSize), detail.userData)) {
        }
        m_Refused.set_value(Clock::now());
        return {};
    }

private:
    static constexpr std::size_t ChunkSize = std::size_t{16} * 1024;

    std::promise<Clock::time_point>& m_Refused;
};

class EndlessHandlerFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    explicit EndlessHandlerFactory(std::promise<Clock::time_point>& refused) : m_Refused(refused) {}

    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override
    {
        return std::make_unique<EndlessHandler>(m_Refused);
    }

private:
    std::promise<Clock::time_point>& m_Refused;
};

// From the call of CancelTransfer to the first chunk that is refused.
Clock::duration TimeToCancel()
{
    std::promise<Clock::time_point> refused;
    std::promise<void> started;
    bool first = true;
    const auto agent = VORTAN_MW::AsyncTransferAgentManager::Create();
    auto request = std::make_unique<VORTAN_MW::ITransferAgentManager::TransferConfiguration>();
    request->url = "nowhere";
    request->segmented = true;
    request->handlerFactory = std::make_unique<EndlessHandlerFactory>(refused);
    request->dataCallback = [&](std::unique_ptr<VORTAN_MW::ITransferHandler::Bytes>, void*) {
        if (std::exchange(first, false)) {
            started.set_value();
        }
    };
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    started.get_future().wait();
    const Clock::time_point cancelled = Clock::now();
    agent->CancelTransfer(handle);
    return refused.get_future().get() - cancelled;
}

void PrintTimesToCancel()
{
    std::vector<double> times(1001);
    std::generate(times.begin(), times.end(),
                  [] { return std::chrono::duration<double, std::micro>(TimeToCancel()).count(); });
    std::sort(times.begin(), times.end());
    std::printf(
        "From a cancel to the first refused chunk: median %.1f us (aim 20), 99%% within %.1f us\n",
        times[times.size() / 2], times[times.size() * 99 / 100]);
}

}  // namespace

int main(int argc, char* argv[])
{
    // Many short rounds in random order, so that a busy machine disturbs all alike. The caller's
    // own options come later and win.
    char repetitions[] = "--benchmark_repetitions=21";
    char duration[] = "--benchmark_min_time=0.2";
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char aggregates[] = "--benchmark_display_aggregates_only=true";
    std::vector<char*> options(argv, argv + argc);
    options.insert(options.begin() + 1, {repetitions, duration, interleaving, aggregates});
    int count = static_cast<int>(options.size());
    benchmark::Initialize(&count, options.data());
    if (benchmark::ReportUnrecognizedArguments(count, options.data())) {
        return EXIT_FAILURE;
    }

    benchmark::AddCustomContext("vortan_build_type", VORTAN_BUILD_TYPE);

    setenv("no_proxy", "*", 1);  // NOLINT(concurrency-mt-unsafe): there is one thread so far
    const LoopbackServer server;
    const LoopbackServer keeping(LoopbackServer::Connections::Kept);
    const NginxServer nginx;
    if (!nginx.IsInstalled()) {
        std::fputs("Nothing is measured over TLS: nginx, openssl or Python is missing\n", stderr);
    }
    const double peakOf16MiB = PeakMemoryOfStreaming(server.Url(16 * MiB));
    const double peakOf1GiB = PeakMemoryOfStreaming(server.Url(1024 * MiB));

    curl_global_init(CURL_GLOBAL_ALL);
    const TemporaryFile file(LargeBody);
    const std::string upload(LargeBody, 'x');
    RegisterAll(server, file, upload);
    RegisterTls(nginx);
    RegisterKit(server, keeping);
    RatioReporter reporter(Comparisons);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nPeak memory of a process that streams 16 MiB: %.1f MiB, 1 GiB: %.1f MiB\n",
                peakOf16MiB, peakOf1GiB);
    PrintTimesToCancel();
    return EXIT_SUCCESS;
}
