// The handler of an example keeps what it promises, whatever servers do. What should end by itself
// would hang if it did not.

#include <AsyncTransferAgentManager.h>
#include <curl/curl.h>
#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <stdexcept>

#include "IndexedBytes.h"
#include "LoopbackPort.h"
#include "ResilientHandler.h"
#include "ServerTest.h"

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using Bytes = ITransferHandler::Bytes;
using HttpMethod = ITransferHandler::Configuration::HttpMethod;

namespace {

// From when it is set on, time alone ends no wait of a handler.
std::atomic<bool> onlyEventsEndWaits{false};

}  // namespace

// What the linker puts in the place of libcurl's function, and by which name it hands that on.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's
extern "C" CURLMcode __real_curl_multi_poll(CURLM* multi, curl_waitfd* further, unsigned int count,
                                            int milliseconds, int* ready);
extern "C" CURLMcode __wrap_curl_multi_poll(CURLM* multi, curl_waitfd* further, unsigned int count,
                                            int milliseconds, int*)
{
    CURLMcode code = CURLM_OK;
    int ready = 0;
    do {
        code = __real_curl_multi_poll(multi, further, count, milliseconds, &ready);
    } while (code == CURLM_OK && ready == 0 && onlyEventsEndWaits);
    return code;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

struct Response
{
    bool success = false;
    long code = -1;
    std::string header;
    Bytes body;
};

Response Fetch(const ITransferHandler::Configuration& request, const ResilientLimits& limits = {})
{
    ResilientHandlerFactory factory(limits);
    Bytes header = {'o', 'l', 'd'};
    Response response;
    response.body = header;
    const ITransferHandler::Result result =
        factory.Create()->GetTransfer(request, header, response.body);
    response.success = result.success;
    response.code = *result.httpCode;
    response.header.assign(header.begin(), header.end());
    return response;
}

ITransferHandler::Configuration Request(const std::string& url,
                                        HttpMethod method = HttpMethod::EhttpGet,
                                        std::string body = "")
{
    ITransferHandler::Configuration request;
    request.url = url;
    request.method = method;
    request.requestBody = std::move(body);
    return request;
}

std::string Pieces(const std::string& kind, std::size_t length, std::size_t size)
{
    return "/pieces/" + kind + "/" + std::to_string(length) + "/" + std::to_string(size);
}

// Connections that a listening peer has not taken yet, as many as it can have: the next one waits.
class FullBacklog
{
public:
    explicit FullBacklog(const LoopbackPort& port)
    {
        const sockaddr_in address = port.Address();
        for (const int connection : m_Connections) {
            EXPECT_EQ(
                connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address),
                0);
        }
    }
    FullBacklog(const FullBacklog&) = delete;
    FullBacklog& operator=(const FullBacklog&) = delete;
    ~FullBacklog()
    {
        for (const int connection : m_Connections) {
            close(connection);
        }
    }

private:
    static int s_Socket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

    // A backlog of 1 has room for two.
    const std::array<int, 2> m_Connections = {s_Socket(), s_Socket()};
};

class ResilientHandlerTest : public ServerTest<OddServer>
{
protected:
    // Tells a stalled server to go on.
    static void Release(const std::string& key) { Fetch(Request(Url("/release/" + key))); }
    static void AwaitStall(const std::string& key) { Fetch(Request(Url("/await-stall/" + key))); }
};

TEST_F(ResilientHandlerTest, ADownloadArrivesWithItsHeaderAndStatus)
{
    const Response response = Fetch(Request(Url("/bytes/" + std::to_string(LongLength))));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 200);
    EXPECT_THAT(response.header, StartsWith("HTTP/1.1 200 Status\r\n"));
    EXPECT_TRUE(response.body == IndexedBytes(LongLength));
}

TEST_F(ResilientHandlerTest, AnErrorStatusIsAFailureOnlyIfThatIsAskedFor)
{
    ITransferHandler::Configuration request = Request(Url("/status/404"));
    EXPECT_FALSE(Fetch(request).success);
    request.failOnError = false;
    const Response response = Fetch(request);
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 404);
}

TEST_F(ResilientHandlerTest, AHeadRequestBringsAHeaderAlone)
{
    const Response response = Fetch(Request(Url("/bytes/7"), HttpMethod::EhttpHead));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.header, HasSubstr("Content-Length: 7\r\n"));
    EXPECT_EQ(response.body, Bytes());
}

TEST_F(ResilientHandlerTest, RequestHeadersAreSent)
{
    ITransferHandler::Configuration request = Request(Url("/echo"));
    request.headers = {{"X-One", "1"}, {"X-Two", "2"}};
    const Response response = Fetch(request);
    EXPECT_THAT(std::string(response.body.begin(), response.body.end()),
                HasSubstr("X-One: 1\r\nX-Two: 2\r\n"));
}

TEST_F(ResilientHandlerTest, AServerThatFallsSilentInTheBodyIsGivenUp)
{
    ResilientLimits limits;
    limits.silence = std::chrono::seconds(1);
    const Response response = Fetch(Request(Url("/stall/body")), limits);
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.body, Bytes{'1'});
    Release("body");
}

TEST_F(ResilientHandlerTest, AServerThatNeverAnswersIsGivenUp)
{
    ResilientLimits limits;
    limits.silence = std::chrono::seconds(1);
    const Response response = Fetch(Request(Url("/silence/alone")), limits);
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, 0);
}

TEST_F(ResilientHandlerTest, AnEndlessBodyEndsWhenTheTimeAltogetherIsOver)
{
    ResilientLimits limits;
    limits.altogether = std::chrono::milliseconds(100);
    EXPECT_FALSE(Fetch(Request(Url("/until-closed")), limits).success);
}

TEST_F(ResilientHandlerTest, APeerThatTakesNoConnectionIsGivenUp)
{
    LoopbackPort port;
    port.Listen();
    const FullBacklog nobodyElseGetsIn(port);
    ResilientLimits limits;
    limits.connecting = std::chrono::milliseconds(100);
    EXPECT_FALSE(Fetch(Request(port.Url()), limits).success);
}

class RedirectedUpload : public ResilientHandlerTest,
                         public ::testing::WithParamInterface<HttpMethod>
{
};

INSTANTIATE_TEST_SUITE_P(Method, RedirectedUpload,
                         ::testing::Values(HttpMethod::EhttpPost, HttpMethod::EhttpPut),
                         [](const ::testing::TestParamInfo<HttpMethod>& method) {
                             return method.param == HttpMethod::EhttpPost ? "Post" : "Put";
                         });

TEST_P(RedirectedUpload, IsSentAgainFromItsFirstByte)
{
    for (const std::string status : {"302", "307", "308"}) {
        const Response response =
            Fetch(Request(Url("/redirect-mirror/" + status), GetParam(), IndexedText(LongLength)));
        EXPECT_TRUE(response.success) << status;
        EXPECT_TRUE(response.body == IndexedBytes(LongLength)) << status;
    }
}

TEST_F(ResilientHandlerTest, ADownloadThatBreaksOffGoesOnWhereItWas)
{
    const Response response = Fetch(Request(Url(Pieces("sound", LongLength, 500000))));
    EXPECT_TRUE(response.success);
    EXPECT_TRUE(response.body == IndexedBytes(LongLength));
}

TEST_F(ResilientHandlerTest, AResumedDownloadHasOneHeader)
{
    const Response response = Fetch(Request(Url(Pieces("sound", 10, 4))));
    EXPECT_THAT(response.header, StartsWith("HTTP/1.1 200 Status\r\n"));
    EXPECT_THAT(response.header, Not(HasSubstr("206")));
}

TEST_F(ResilientHandlerTest, ADownloadIsResumedAsOftenAsIsAllowed)
{
    ResilientLimits limits;
    limits.resumes = 2;
    EXPECT_TRUE(Fetch(Request(Url(Pieces("sound", 9, 3))), limits).success);
    const Response response = Fetch(Request(Url(Pieces("sound", 10, 3))), limits);
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.body, IndexedBytes(9));
}

TEST_F(ResilientHandlerTest, APartIsNeverFollowedByAnythingButItsRest)
{
    for (const std::string kind :
         {"changing", "weakly-tagged", "rangeless", "shifted", "refusing"}) {
        const Response response = Fetch(Request(Url(Pieces(kind, 10, 4))));
        EXPECT_FALSE(response.success) << kind;
        EXPECT_EQ(response.body, IndexedBytes(4)) << kind;
    }
}

TEST_F(ResilientHandlerTest, AnUploadIsNotSentTwiceBecauseItsAnswerBrokeOff)
{
    const Response response =
        Fetch(Request(Url(Pieces("sound", 10, 4)), HttpMethod::EhttpPost, IndexedText(100)));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.body, IndexedBytes(4));
}

TEST_F(ResilientHandlerTest, ACallbackCanStopTheTransfer)
{
    ResilientHandlerFactory factory;
    const auto refuse = [](const std::unique_ptr<Bytes>&, void*) { return false; };
    EXPECT_FALSE(factory.Create()
                     ->GetTransfer(Request(Url("/until-closed")), nullptr, refuse, nullptr)
                     .success);
}

TEST_F(ResilientHandlerTest, WhatACallbackThrowsReachesTheCaller)
{
    ResilientHandlerFactory factory;
    const auto fail = [](const std::unique_ptr<Bytes>&, void*) -> bool {
        throw std::runtime_error("abc");
    };
    EXPECT_THROW(
        factory.Create()->GetTransfer(Request(Url("/until-closed")), nullptr, fail, nullptr),
        std::runtime_error);
}

TEST_F(ResilientHandlerTest, WithoutItsFactoryAHandlerSendsNothing)
{
    const auto handler = ResilientHandlerFactory().Create();
    Bytes body;
    const ITransferHandler::Result result =
        handler->GetTransfer(Request(Url("/bytes/7")), boost::none, body);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(*result.httpCode, 0);
}

// Through an agent, whose destructor waits for the transfer.
class CancelledTransfer : public ResilientHandlerTest, public ::testing::WithParamInterface<bool>
{
protected:
    // Cancels when the server has been asked. No time-out ends the transfer, and no byte does.
    void CancelWhileSilent(const std::string& behaviour)
    {
        const std::string key = behaviour + (GetParam() ? "-segmented" : "-plain");
        auto manager = AsyncTransferAgentManager::Create();
        const std::uint64_t handle =
            manager->RequestTransfer(MakeRequest("/" + behaviour + "/" + key));
        AwaitStall(key);
        onlyEventsEndWaits = true;
        EXPECT_TRUE(manager->CancelTransfer(handle));
        manager.reset();
        onlyEventsEndWaits = false;
        Release(key);
    }

private:
    static std::unique_ptr<ITransferAgentManager::TransferConfiguration> MakeRequest(
        const std::string& path)
    {
        ResilientLimits limits;
        limits.silence = std::chrono::seconds(0);
        auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
        request->url = Url(path);
        request->segmented = GetParam();
        request->handlerFactory = std::make_unique<ResilientHandlerFactory>(limits);
        request->dataCallback = [](const std::unique_ptr<Bytes>&, void*) {};
        return request;
    }
};

INSTANTIATE_TEST_SUITE_P(Mode, CancelledTransfer, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& segmented) {
                             return segmented.param ? "Segmented" : "Plain";
                         });

TEST_P(CancelledTransfer, EndsThoughItsServerFallsSilentInTheBody)
{
    CancelWhileSilent("stall");
}

TEST_P(CancelledTransfer, EndsThoughItsServerNeverAnswers)
{
    CancelWhileSilent("silence");
}

}  // namespace
