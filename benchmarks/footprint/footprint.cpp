// What the library takes of a small device: heap and stack, state by state. See docs/footprint.md.
//
//     vortan_footprint HTTP_URL HTTPS_URL SMALL_HTTPS_URL BUNDLE FOLDER
//
// The first two URLs are those of a long body, the third that of a short one. Over TLS the server
// has a certificate that an authority in the file BUNDLE has signed, which is also in FOLDER, where
// names are by their hashes.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <dlog.h>
#include <netdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Gate.h"
#include "HeapMeter.h"
#include "StackMeter.h"
#include "TrustedAuthority.h"

using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::CurlEasyHandlerFactory;
using VORTAN_MW::FileReaderFactory;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;

namespace {

constexpr std::int64_t AnHour = 3600000;

// What the log tells about where a transfer is.
struct Progress
{
    Gate sleeping;
    Gate joining;
};
Progress* progress = nullptr;

}  // namespace

// Takes the platform log's place, and takes no heap and hardly any stack.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the device's.
extern "C" int __dlog_print(int, int, const char*, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    va_arg(arguments, const char*);
    va_arg(arguments, const char*);
    va_arg(arguments, int);
    const std::string_view message = va_arg(arguments, const char*);
    va_end(arguments);
    if (message.rfind("Start sleeping for: ", 0) == 0) {
        progress->sleeping.Open();
    } else if (message.rfind("joining thread: ", 0) == 0) {
        progress->joining.Open();
    }
    return 0;
}

namespace {

using Request = ITransferAgentManager::TransferConfiguration;
using RequestPtr = std::unique_ptr<Request>;

// Succeeds at once, without a byte.
class EmptyHandler : public ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail&) const override { return {true, nullptr}; }
};

class EmptyHandlerFactory : public ITransferHandlerFactory
{
public:
    std::unique_ptr<ITransferHandler> Create() override { return std::make_unique<EmptyHandler>(); }
};

template <typename Factory>
RequestPtr MakeRequest(const std::string& url)
{
    auto request = std::make_unique<Request>();
    request->url = url;
    request->handlerFactory = std::make_unique<Factory>();
    request->dataCallback = [](const auto&, void*) {};
    return request;
}

template <typename Factory>
RequestPtr MakeStream(const std::string& url)
{
    RequestPtr request = MakeRequest<Factory>(url);
    request->segmented = true;
    return request;
}

void Fail(const char* what)
{
    std::fprintf(stderr, "footprint: %s\n", what);
    std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): nothing is left to do
}

// An agent and its transfers. Their workers end only when the agent is destroyed, which joins
// them: then nothing of them is left to come.
class Run
{
public:
    Run() : m_Manager(AsyncTransferAgentManager::Create()) { progress = &m_Progress; }

    void Start(RequestPtr request)
    {
        request->completeCallback = [this](const ITransferHandler::Result& result, void*) {
            if (!result.success) {
                Fail("a transfer failed");
            }
            m_Completed[m_CompletedCount++].Open();
            m_Progress.joining.Wait();
        };
        if (m_Manager->RequestTransfer(std::move(request)) ==
            ITransferAgentManager::InvalidHandle) {
            Fail("a request was refused");
        }
        ++m_Started;
    }

    // Until the worker sleeps and has freed the agent's mutex.
    void WaitForSleep()
    {
        m_Progress.sleeping.Wait();
        m_Manager->CancelTransfer(ITransferAgentManager::InvalidHandle);
    }

    void WaitForCompletion()
    {
        for (std::size_t i = 0; i < m_Started; ++i) {
            m_Completed.at(i).Wait();
        }
    }

    void End() { m_Manager.reset(); }

private:
    Progress m_Progress;
    std::array<Gate, 4> m_Completed;
    std::atomic<std::size_t> m_CompletedCount{0};
    std::size_t m_Started = 0;
    std::unique_ptr<ITransferAgentManager> m_Manager;
};

void PrintHeap(const char* state, const HeapUse& use)
{
    std::printf("%-46s %9zu %9zu\n", state, use.cxx, use.other);
}

void MeasureWaitingHeap(const std::string& url)
{
    const HeapUse before = CurrentHeap();
    Run run;
    PrintHeap("idle agent", CurrentHeap() - before);
    RequestPtr request = MakeRequest<CurlEasyHandlerFactory>(url);
    request->fixedDelay = AnHour;
    run.Start(std::move(request));
    run.WaitForSleep();
    PrintHeap("agent with a transfer that waits", CurrentHeap() - before);
    run.End();
    PrintHeap("after the agent's end", CurrentHeap() - before);
}

// Its peak while so many transfers stream, all of them at once: none goes on before the last has
// come to its first chunk.
void MeasureStreamHeap(const char* state, const std::string& url, std::size_t count)
{
    std::atomic<std::size_t> streaming{0};
    Gate all;
    const HeapUse before = CurrentHeap();
    ResetPeakHeap();
    Run run;
    for (std::size_t i = 0; i < count; ++i) {
        RequestPtr request = MakeStream<CurlEasyHandlerFactory>(url);
        request->dataCallback = [&, first = true](const auto& chunk, void*) mutable {
            if (chunk && std::exchange(first, false)) {
                if (++streaming == count) {
                    all.Open();
                }
                all.Wait();
            }
        };
        run.Start(std::move(request));
    }
    run.WaitForCompletion();
    PrintHeap(state, PeakHeap() - before);
    run.End();
}

void MeasureFirstUseOfTls(const std::string& url)
{
    const HeapUse before = CurrentHeap();
    Run run;
    run.Start(MakeStream<CurlEasyHandlerFactory>(url));
    run.WaitForCompletion();
    run.End();
    PrintHeap("what the first use of TLS keeps, once", CurrentHeap() - before);
}

// With the authorities in this file or folder.
void MeasureTlsHeap(const char* kind, const std::string& authorities, const std::string& url,
                    const std::string& smallUrl)
{
    const TrustedAuthority authority(authorities);
    std::printf("with authorities in a %s:\n", kind);
    MeasureStreamHeap("a transfer of 1 KiB over TLS, at most", smallUrl, 1);
    MeasureStreamHeap("a streamed transfer over TLS, at most", url, 1);
    MeasureStreamHeap("four streamed transfers over TLS, at most", url, 4);
}

struct TlsServer
{
    std::string url;
    std::string smallUrl;
    std::string bundle;
    std::string folder;
};

void MeasureHeap(const std::string& url, const TlsServer& tls)
{
    std::printf("\n%-46s %9s %9s\n", "heap, in bytes", "C++", "C");
    const HeapUse before = CurrentHeap();
    CurlEasyHandlerFactory().Create();
    PrintHeap("libcurl's initialisation, once", CurrentHeap() - before);
    MeasureWaitingHeap(url);
    MeasureStreamHeap("a streamed transfer, at most", url, 1);
    MeasureStreamHeap("four streamed transfers, at most", url, 4);
    {
        const TrustedAuthority authority(tls.bundle);
        MeasureFirstUseOfTls(tls.url);
    }
    MeasureTlsHeap("bundle", tls.bundle, tls.url, tls.smallUrl);
    MeasureTlsHeap("hashed folder", tls.folder, tls.url, tls.smallUrl);
}

// In a process of its own: what a thread calls first is looked up on its stack.
void MeasureStack(const char* work, const std::function<void()>& start)
{
    std::fflush(stdout);
    const pid_t process = fork();
    if (process == 0) {
        start();
        std::printf("%-46s %9zu\n", work, DeepestStack());
        std::fflush(stdout);
        _exit(EXIT_SUCCESS);
    }
    int status = 0;
    if (waitpid(process, &status, 0) < 0 || status != 0) {
        Fail("a measurement of the stack failed");
    }
}

void MeasureStack(const char* work, const RequestPtr& request)
{
    MeasureStack(work, [&request] {
        Run run;
        run.Start(std::make_unique<Request>(std::move(*request)));
        run.WaitForCompletion();
        run.End();
    });
}

void ResolveLocalhost()
{
    addrinfo* found = nullptr;
    if (getaddrinfo("localhost", "80", nullptr, &found) == 0) {
        freeaddrinfo(found);
    }
}

void MeasureStacks(const std::string& url, const TlsServer& tls)
{
    const TrustedAuthority authority(tls.bundle);
    std::printf("%-46s %9s\n", "stack, in bytes", "used");
    MeasureStack("a thread that does nothing", [] { std::thread([] {}).join(); });
    RequestPtr waiting = MakeRequest<EmptyHandlerFactory>("nowhere");
    waiting->fixedDelay = 1;
    MeasureStack("a wait, and a handler that does nothing", waiting);
    RequestPtr random = MakeRequest<EmptyHandlerFactory>("nowhere");
    random->randomDelay = ITransferHandler::Configuration::RandomDelay{0, 0};
    MeasureStack("the same with a random delay", random);
    MeasureStack("a file", MakeRequest<FileReaderFactory>("/proc/version"));
    MeasureStack("plain HTTP", MakeRequest<CurlEasyHandlerFactory>(url));
    MeasureStack("streamed HTTP", MakeStream<CurlEasyHandlerFactory>(url));
    MeasureStack("streamed HTTP over TLS", MakeStream<CurlEasyHandlerFactory>(tls.url));
    MeasureStack("a name's resolution, on a thread of libcurl's",
                 [] { std::thread(ResolveLocalhost).join(); });
}

}  // namespace

int main(int argc, char* argv[])
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() != 5) {
        Fail("five arguments are needed, see footprint.cpp");
    }
    setenv("no_proxy", "*", 1);  // NOLINT(concurrency-mt-unsafe): there is one thread so far
    const TlsServer tls = {arguments[1], arguments[2], arguments[3], arguments[4]};
    MeasureStacks(arguments[0], tls);
    MeasureHeap(arguments[0], tls);
    return EXIT_SUCCESS;
}
