// Each allocation of the kit's own and each call of libcurl fails once in each place. No exception
// leaves a transfer, and the next one succeeds.

#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <new>

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

class KitFailures : public ::testing::TestWithParam<Countdown*>
{
protected:
    struct Ending
    {
        bool success = false;
        std::size_t length = 0;
    };

    // Performs a transfer of which the number-th thing fails; none if it is 0. Says whether it did.
    bool Perform(long number, Ending& ending)
    {
        std::size_t length = 0;
        ITransferHandler::TransferDetail detail;
        static_cast<Configuration&>(detail) =
            Request(server.Url(), HttpMethod::EhttpPut, std::string(100, 'x'));
        detail.headers = {{"X-Name", "value"}};
        detail.headerCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {
            return true;
        };
        detail.dataCallback = [&length](std::unique_ptr<ITransferHandler::Bytes> chunk, void*) {
            length += chunk->size();
            return true;
        };
        const auto factory = session->MakeFactory();
        const auto handler = factory->Create();
        Countdown& countdown = *GetParam();
        countdown.left = number;
        const ITransferHandler::Result result = handler->DoTransfer(detail);
        const bool hasFailed = number > 0 && countdown.left == 0;
        countdown.left = 0;
        ending = {result.success, length};
        return hasFailed;
    }

    // Redirects once.
    ScriptedServer server{[](const ScriptedServer::Request& request) -> Answer {
        return {request.target == "/"
                    ? HttpResponse("HTTP/1.1 307 Temporarily", "", {"Location: /b"})
                    : HttpResponse("HTTP/1.1 200 OK", "good", {"ETag: \"a\""})};
    }};
    const CaughtLog log;
    std::unique_ptr<KIT::HttpSession> session = std::make_unique<KIT::HttpSession>(LocalPolicy());
};

INSTANTIATE_TEST_SUITE_P(Each, KitFailures, ::testing::Values(&s_Allocations, &s_Calls),
                         [](const ::testing::TestParamInfo<Countdown*>& kind) {
                             return kind.param == &s_Allocations ? "Allocation" : "Call";
                         });

}  // namespace

TEST_P(KitFailures, EndTheTransferAndLeaveTheSessionUsable)
{
    Ending ending;
    EXPECT_FALSE(Perform(0, ending));
    EXPECT_TRUE(ending.success);
    long failures = 0;
    for (long number = 1;; ++number) {
        session = std::make_unique<KIT::HttpSession>(LocalPolicy());  // with no handle in its pool
        if (!Perform(number, ending)) {
            break;
        }
        failures += ending.success ? 0 : 1;
        EXPECT_TRUE(!ending.success || ending.length == 4) << number;
        Perform(0, ending);
        EXPECT_TRUE(ending.success) << number;
        EXPECT_EQ(ending.length, 4U);
    }
    EXPECT_GT(failures, 20);
}
