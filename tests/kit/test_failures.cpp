// Each allocation of the kit's own and each call of libcurl fails once in each place. No exception
// leaves a transfer, and the next one succeeds.

#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <tuple>

#include "FileClient.h"
#include "KitClient.h"
#include "ScriptedServer.h"

// Macros to some compilers.
#undef curl_easy_setopt
#undef curl_easy_getinfo

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using Answer = ScriptedServer::Answer;
using Then = Answer::Then;

namespace {

// Counts the calls of this thread, of which one fails.
struct Countdown
{
    bool Fails() { return left > 0 && --left == 0; }

    long left = 0;
};

thread_local Countdown s_Allocations;
thread_local Countdown s_Calls;

template <typename Function>
Function* Real(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The range of an option's number says as which type libcurl reads the argument.
CURLcode Forward(CURL* easy, CURLoption option, va_list arguments)
{
    const auto set = Real(&curl_easy_setopt, "curl_easy_setopt");
    if (option >= CURLOPTTYPE_OFF_T) {
        return set(easy, option, va_arg(arguments, curl_off_t));
    }
    if (option >= CURLOPTTYPE_OBJECTPOINT) {
        return set(easy, option, va_arg(arguments, void*));
    }
    return set(easy, option, va_arg(arguments, long));
}

}  // namespace

void* operator new(std::size_t size)
{
    void* const memory = s_Allocations.Fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return s_Allocations.Fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

// libcurl's own signatures have an enumeration before the ellipsis, which is as wide as an int.
#pragma GCC diagnostic ignored "-Wvarargs"
#pragma GCC visibility push(default)

extern "C" {

CURL* curl_easy_init()
{
    return s_Calls.Fails() ? nullptr : Real(&curl_easy_init, "curl_easy_init")();
}

CURLM* curl_multi_init()
{
    return s_Calls.Fails() ? nullptr : Real(&curl_multi_init, "curl_multi_init")();
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy)
{
    return s_Calls.Fails() ? CURLM_OUT_OF_MEMORY
                           : Real(&curl_multi_add_handle, "curl_multi_add_handle")(multi, easy);
}

CURLMcode curl_multi_perform(CURLM* multi, int* running)
{
    return s_Calls.Fails() ? CURLM_OUT_OF_MEMORY
                           : Real(&curl_multi_perform, "curl_multi_perform")(multi, running);
}

CURLMcode curl_multi_poll(CURLM* multi, curl_waitfd* more, unsigned int count, int timeout,
                          int* ready)
{
    return s_Calls.Fails()
               ? CURLM_OUT_OF_MEMORY
               : Real(&curl_multi_poll, "curl_multi_poll")(multi, more, count, timeout, ready);
}

curl_slist* curl_slist_append(curl_slist* list, const char* line)
{
    return s_Calls.Fails() ? nullptr : Real(&curl_slist_append, "curl_slist_append")(list, line);
}

CURLU* curl_url()
{
    return s_Calls.Fails() ? nullptr : Real(&curl_url, "curl_url")();
}

CURLUcode curl_url_set(CURLU* url, CURLUPart part, const char* text, unsigned int flags)
{
    return s_Calls.Fails() ? CURLUE_OUT_OF_MEMORY
                           : Real(&curl_url_set, "curl_url_set")(url, part, text, flags);
}

// curl_url_get, whose first argument is const in some versions of libcurl only.
CURLUcode TextOfUrl(void* url, CURLUPart part, char** text,
                    unsigned int flags) __asm__("curl_url_get");

CURLUcode TextOfUrl(void* url, CURLUPart part, char** text, unsigned int flags)
{
    return s_Calls.Fails() ? CURLUE_OUT_OF_MEMORY
                           : Real(&TextOfUrl, "curl_url_get")(url, part, text, flags);
}

CURLMsg* curl_multi_info_read(CURLM* multi, int* queued)
{
    return s_Calls.Fails() ? nullptr
                           : Real(&curl_multi_info_read, "curl_multi_info_read")(multi, queued);
}

CURLcode curl_easy_setopt(CURL* easy, CURLoption option, ...)
{
    if (s_Calls.Fails()) {
        return CURLE_OUT_OF_MEMORY;
    }
    va_list arguments;
    va_start(arguments, option);
    const CURLcode code = Forward(easy, option, arguments);
    va_end(arguments);
    return code;
}

CURLcode curl_easy_getinfo(CURL* easy, CURLINFO info, ...)
{
    if (s_Calls.Fails()) {
        return CURLE_UNKNOWN_OPTION;
    }
    va_list arguments;
    va_start(arguments, info);
    void* const value = va_arg(arguments, void*);
    va_end(arguments);
    return Real(&curl_easy_getinfo, "curl_easy_getinfo")(easy, info, value);
}

}  // extern "C"

#pragma GCC visibility pop

namespace {

// What is transferred while something fails.
struct Scenario
{
    const char* name;
    HttpMethod method;
    ScriptedServer::Handler handler;
    bool isOverTls;
    std::string body;  // of the response
};

Answer RedirectOnce(const ScriptedServer::Request& request)
{
    return {request.target == "/" ? HttpResponse("HTTP/1.1 307 Temporarily", "", {"Location: /b"})
                                  : HttpResponse("HTTP/1.1 200 OK", "good", {"ETag: \"a\""})};
}

Answer BreakOffOnce(const ScriptedServer::Request& request)
{
    if (request.Has("Range")) {
        return {HttpResponse("HTTP/1.1 206 Part", "456789",
                             {"Content-Range: bytes 4-9/10", "ETag: \"a\""})};
    }
    return {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\nETag: \"a\"\r\n\r\n0123", Then::Close};
}

const Scenario Scenarios[] = {
    {"Redirect", HttpMethod::EhttpPut, RedirectOnce, false, "good"},
    {"Continuation", HttpMethod::EhttpGet, BreakOffOnce, false, "0123456789"},
    {"ContinuationOverTls", HttpMethod::EhttpGet, BreakOffOnce, true, "0123456789"},
};

using Parameter = std::tuple<Countdown*, Scenario>;

class KitFailures : public ::testing::TestWithParam<Parameter>
{
protected:
    struct Ending
    {
        bool success = false;
        std::string body;
    };

    KitFailures()
    {
        policy = LocalPolicy();
        if (scenario.isOverTls) {
            policy.SetSchemes({"https"})
                .SetAuthorityFile(identity.CertificateFile())
                .SetClientCertificate(identity.CertificateFile(), identity.KeyFile())
                .SetPinnedKey(identity.Pin());
        }
        Restart();
    }

    // A session with no handle in its pool, and a server without connections: it has a thread for
    // each that it ever had, more than fit into the addresses of a 32-bit process.
    void Restart()
    {
        server = scenario.isOverTls
                     ? std::make_unique<ScriptedServer>(scenario.handler,
                                                        ScriptedServer::Tls{identity, &identity})
                     : std::make_unique<ScriptedServer>(scenario.handler);
        session = std::make_unique<KIT::HttpSession>(policy);
    }

    // Performs a transfer of which the number-th thing fails; none if it is 0. Says whether it did.
    bool Perform(long number, Ending& ending)
    {
        std::string body;
        body.reserve(scenario.body.size() + 1);
        ITransferHandler::TransferDetail detail;
        static_cast<Configuration&>(detail) =
            Request(server->Url(), scenario.method, std::string(100, 'x'));
        detail.headers = {{"X-Name", "value"}};
        detail.headerCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {
            return true;
        };
        detail.dataCallback = [&body](std::unique_ptr<ITransferHandler::Bytes> chunk, void*) {
            body.append(chunk->begin(), chunk->end());
            return true;
        };
        const auto factory = session->MakeFactory();
        const auto handler = factory->Create();
        Countdown& countdown = *std::get<Countdown*>(GetParam());
        countdown.left = number;
        const ITransferHandler::Result result = handler->DoTransfer(detail);
        const bool hasFailed = number > 0 && countdown.left == 0;
        countdown.left = 0;
        ending = {result.success, body};
        return hasFailed;
    }

    const Scenario scenario = std::get<Scenario>(GetParam());
    const TlsIdentity identity;
    KIT::TransferPolicy policy;
    const CaughtLog log;
    std::unique_ptr<ScriptedServer> server;
    std::unique_ptr<KIT::HttpSession> session;
};

INSTANTIATE_TEST_SUITE_P(Each, KitFailures,
                         ::testing::Combine(::testing::Values(&s_Allocations, &s_Calls),
                                            ::testing::ValuesIn(Scenarios)),
                         [](const ::testing::TestParamInfo<Parameter>& each) {
                             const bool isAllocation =
                                 std::get<Countdown*>(each.param) == &s_Allocations;
                             return std::string(isAllocation ? "AllocationIn" : "CallIn") +
                                    std::get<Scenario>(each.param).name;
                         });

}  // namespace

TEST_P(KitFailures, EndTheTransferAndLeaveTheSessionUsable)
{
    Ending ending;
    EXPECT_FALSE(Perform(0, ending));
    EXPECT_TRUE(ending.success);
    long failures = 0;
    for (long number = 1;; ++number) {
        Restart();
        if (!Perform(number, ending)) {
            break;
        }
        failures += ending.success ? 0 : 1;
        EXPECT_EQ(ending.body,
                  ending.success ? scenario.body : scenario.body.substr(0, ending.body.size()))
            << number;
        Perform(0, ending);
        EXPECT_TRUE(ending.success) << number;
        EXPECT_EQ(ending.body, scenario.body);
    }
    EXPECT_GT(failures, 20);
}

namespace {

class KitFileFailures : public ::testing::TestWithParam<Countdown*>
{
};

INSTANTIATE_TEST_SUITE_P(Each, KitFileFailures, ::testing::Values(&s_Allocations, &s_Calls),
                         [](const ::testing::TestParamInfo<Countdown*>& kind) {
                             return kind.param == &s_Allocations ? "Allocation" : "Call";
                         });

}  // namespace

TEST_P(KitFileFailures, LeaveAFileThatIsWholeOrNotThere)
{
    const CaughtLog log;
    auto session = std::make_unique<KIT::HttpSession>(LocalPolicy());
    const TemporaryFolder folder;
    const std::string path = folder.Path("file");
    const Version version{"0123456789"};
    ScriptedServer cutting([&version](const ScriptedServer::Request& request) -> Answer {
        const std::string range = request.Value("Range");
        return {WholeOrRest(version, range, request.Value("If-Range"), range.empty() ? 4 : 10),
                range.empty() ? Then::Close : Then::Keep};
    });
    long number = 0;
    for (bool hasFailed = true; hasFailed;) {
        static_cast<void>(std::remove(path.c_str()));
        ITransferAgentManager::TransferConfiguration job;
        static_cast<Configuration&>(job) = Request(cutting.Url());
        job.handlerFactory = session->MakeFactory();
        KIT::FileSink(path, Sha256Of(version.body)).AttachTo(job);
        const auto handler = job.handlerFactory->Create();
        ITransferHandler::TransferDetail detail;
        static_cast<Configuration&>(detail) = job;
        GetParam()->left = ++number;
        const bool success = handler->DoTransfer(detail).success;
        hasFailed = GetParam()->left == 0;
        GetParam()->left = 0;
        EXPECT_EQ(TextOf(path), success ? version.body : "") << number;
        EXPECT_TRUE(handler->DoTransfer(detail).success) << number;
        EXPECT_EQ(TextOf(path), version.body) << number;
        EXPECT_FALSE(HasPart(path)) << number;
        session = std::make_unique<KIT::HttpSession>(LocalPolicy());
    }
    EXPECT_GT(number, 20);
}
