// Transfers with the libcurl handler that the server, the network or the client's callback ends.

#include <gmock/gmock.h>

#include <stdexcept>

#include "CaughtLog.h"
#include "CurlEasyHandlerFactory.h"
#include "ErrorLine.h"
#include "HttpExchange.h"
#include "IndexedBytes.h"
#include "LoopbackPort.h"
#include "ServerTest.h"

using ::testing::StartsWith;
using VORTAN_MW::CurlEasyHandlerFactory;
using VORTAN_MW::ITransferHandler;

namespace {

class HttpFailure : public ServerTest<OddServer>
{
protected:
    using Bytes = ITransferHandler::Bytes;

    // Fetches, and expects failure, this status (0 for none) and this cause in the log.
    Response ExpectFailure(const std::string& url, CURLcode cause, long code)
    {
        Response response = Fetch(url);
        EXPECT_FALSE(response.success);
        EXPECT_EQ(response.code, code);
        EXPECT_EQ(log.Count(ErrorLine(cause, code, url)), 1U);
        return response;
    }

    CaughtLog log;
};

TEST_F(HttpFailure, APartOfABodyIsAFailureThatKeepsWhatArrived)
{
    const Response response = ExpectFailure(Url("/truncate/100"), CURLE_PARTIAL_FILE, 200);
    EXPECT_EQ(response.body, IndexedText(99));
}

TEST_F(HttpFailure, APartOfALongBodyIsAFailureThatKeepsWhatArrived)
{
    const std::string url = Url("/truncate/" + std::to_string(LongLength));
    const Response response = ExpectFailure(url, CURLE_PARTIAL_FILE, 200);
    EXPECT_TRUE(response.body == IndexedText(LongLength - 1));
}

// How much of the answer outlives the reset is the network's choice.
TEST_F(HttpFailure, AResetConnectionIsAFailure)
{
    const std::string url = Url("/reset/1000");
    const Response response = Fetch(url);
    EXPECT_FALSE(response.success);
    EXPECT_EQ(log.Count(ErrorLine(CURLE_RECV_ERROR, response.code, url)), 1U);
    EXPECT_THAT(IndexedText(1000), StartsWith(response.body));
}

TEST_F(HttpFailure, AClosedPortIsAFailureWithoutAStatus)
{
    const LoopbackPort port;
    const Response response = ExpectFailure(port.Url(), CURLE_COULDNT_CONNECT, 0);
    EXPECT_EQ(response.header, "");
    EXPECT_EQ(response.body, "");
}

// A label of more than 63 letters cannot be asked for: no name server is needed to refuse it.
TEST_F(HttpFailure, AnUnknownHostIsAFailureWithoutAStatus)
{
    ExpectFailure("http://" + std::string(64, 'x') + ".invalid/", CURLE_COULDNT_RESOLVE_HOST, 0);
}

TEST_F(HttpFailure, AnAnswerThatIsNoHttpIsAFailureWithoutAStatus)
{
    const Response response = Fetch(Url("/garbage"));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, 0);
    EXPECT_EQ(response.body, "");
}

TEST_F(HttpFailure, AHeaderLineWithoutMeasureIsAFailure)
{
    const Response response = Fetch(Url("/big-header/1000000"));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.Value("X-Big"), "");
}

TEST_F(HttpFailure, AnUnknownSchemeIsAFailureWithoutAStatus)
{
    ExpectFailure("nosuch://127.0.0.1/", CURLE_UNSUPPORTED_PROTOCOL, 0);
}

TEST_F(HttpFailure, AnEmptyUrlIsAFailureWithoutAStatus)
{
    ExpectFailure("", CURLE_URL_MALFORMAT, 0);
}

TEST_F(HttpFailure, ARefusedBodyChunkEndsAnEndlessTransfer)
{
    const std::string url = Url("/until-closed");
    int chunks = 0;
    const auto result = CurlEasyHandlerFactory().Create()->GetTransfer(
        Request(url), nullptr, [&](std::unique_ptr<Bytes>, void*) { return ++chunks < 3; },
        nullptr);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(chunks, 3);
    EXPECT_EQ(log.Count("callback failed processing: " + url), 1U);
    EXPECT_EQ(log.Count(ErrorLine(CURLE_WRITE_ERROR, 200, url)), 1U);
}

TEST_F(HttpFailure, ARefusedHeaderLineEndsTheTransferBeforeItsBody)
{
    const std::string url = Url("/until-closed");
    int bodies = 0;
    const auto countBody = [&](std::unique_ptr<Bytes>, void*) {
        ++bodies;
        return true;
    };
    const auto result = CurlEasyHandlerFactory().Create()->GetTransfer(
        Request(url), [](std::unique_ptr<Bytes>, void*) { return false; }, countBody, nullptr);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(bodies, 0);
    EXPECT_EQ(log.Count("callback failed processing: " + url), 1U);
    EXPECT_EQ(log.Count(ErrorLine(CURLE_WRITE_ERROR, 200, url)), 1U);
}

TEST_F(HttpFailure, AnExceptionFromACallbackLeavesAnEndlessTransferAndNothingStaysOpen)
{
    const auto raise = [](std::unique_ptr<Bytes>, void*) -> bool {
        throw std::runtime_error("from the client");
    };
    const auto accept = [](std::unique_ptr<Bytes>, void*) { return true; };
    const auto handler = CurlEasyHandlerFactory().Create();
    const Configuration endless = Request(Url("/until-closed"));
    EXPECT_THROW(handler->GetTransfer(endless, raise, accept, nullptr), std::runtime_error);
    EXPECT_THROW(handler->GetTransfer(endless, accept, raise, nullptr), std::runtime_error);
    EXPECT_TRUE(handler->GetTransfer(Request(Url("/bytes/1")), accept, accept, nullptr).success);
}

class HttpProxy : public HttpFailure
{
protected:
    // NOLINTBEGIN(concurrency-mt-unsafe): no thread runs
    void TearDown() override
    {
        unsetenv("http_proxy");
        unsetenv("no_proxy");
        HttpFailure::TearDown();
    }

    static void Set(const char* variable, const std::string& value)
    {
        setenv(variable, value.c_str(), 1);
    }
    // NOLINTEND(concurrency-mt-unsafe)
};

TEST_F(HttpProxy, TheProxyOfTheEnvironmentIsAskedForTheWholeUrl)
{
    Set("http_proxy", Url(""));
    const Response response = Fetch("http://origin.invalid/echo");
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.body,
                StartsWith("GET http://origin.invalid/echo HTTP/1.1\r\nHost: origin.invalid\r\n"));
}

TEST_F(HttpProxy, AHostThatTheEnvironmentExemptsIsAskedItself)
{
    const LoopbackPort port;
    Set("http_proxy", port.Url());
    EXPECT_FALSE(Fetch(Url("/bytes/1")).success);
    Set("no_proxy", "127.0.0.1");
    EXPECT_TRUE(Fetch(Url("/bytes/1")).success);
}

}  // namespace
