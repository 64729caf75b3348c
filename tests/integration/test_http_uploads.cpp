// Uploads with the libcurl handler to a server that tells what it received.

#include <gmock/gmock.h>

#include "CaughtLog.h"
#include "CurlEasyHandlerFactory.h"
#include "ErrorLine.h"
#include "HttpExchange.h"
#include "IndexedBytes.h"
#include "ServerTest.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

class HttpUpload : public ServerTest<OddServer>
{
protected:
    CaughtLog log;
};

struct Upload
{
    HttpMethod method;
    std::size_t length;
};

std::string NameOf(const ::testing::TestParamInfo<Upload>& upload)
{
    return (upload.param.method == HttpMethod::EhttpPut ? "Put" : "Post") +
           std::to_string(upload.param.length);
}

class HttpUploadOfLength : public HttpUpload, public ::testing::WithParamInterface<Upload>
{
};

INSTANTIATE_TEST_SUITE_P(Kind, HttpUploadOfLength,
                         ::testing::Values(Upload{HttpMethod::EhttpPut, 0},
                                           Upload{HttpMethod::EhttpPut, 1},
                                           Upload{HttpMethod::EhttpPut, LongLength},
                                           Upload{HttpMethod::EhttpPost, 1},
                                           Upload{HttpMethod::EhttpPost, LongLength}),
                         NameOf);

TEST_P(HttpUploadOfLength, ABinaryBodyArrivesByteForByte)
{
    const std::string body = IndexedText(GetParam().length);
    const Response response = Fetch(Request(Url("/mirror"), GetParam().method, body));
    EXPECT_TRUE(response.success);
    EXPECT_TRUE(response.body == body);
}

TEST_P(HttpUploadOfLength, AHandlerUploadsTheWholeBodyEachTime)
{
    const std::string body = IndexedText(GetParam().length);
    const Configuration configuration = Request(Url("/mirror"), GetParam().method, body);
    const auto handler = VORTAN_MW::CurlEasyHandlerFactory().Create();
    for (int turn = 0; turn < 2; ++turn) {
        VORTAN_MW::ITransferHandler::Bytes received;
        const auto result =
            handler->GetTransfer(configuration, boost::none,
                                 boost::optional<VORTAN_MW::ITransferHandler::Bytes&>(received));
        EXPECT_TRUE(result.success);
        EXPECT_TRUE(std::string(received.begin(), received.end()) == body);
    }
}

TEST_F(HttpUpload, APutDeclaresItsLength)
{
    const Response response = Fetch(Request(Url("/mirror"), HttpMethod::EhttpPut, "abc"));
    EXPECT_EQ(response.Value("X-Seen-Request"), "PUT /mirror HTTP/1.1");
    EXPECT_EQ(response.Value("X-Seen-Content-Length"), "3");
    EXPECT_EQ(response.Value("X-Seen-Transfer-Encoding"), "-");
}

TEST_F(HttpUpload, APostIsChunkedAndAsksBeforeItSends)
{
    const Response response = Fetch(Request(Url("/mirror"), HttpMethod::EhttpPost, "abc"));
    EXPECT_EQ(response.Value("X-Seen-Request"), "POST /mirror HTTP/1.1");
    EXPECT_EQ(response.Value("X-Seen-Content-Length"), "-");
    EXPECT_EQ(response.Value("X-Seen-Transfer-Encoding"), "chunked");
    EXPECT_EQ(response.Value("X-Seen-Expect"), "100-continue");
    EXPECT_THAT(response.StatusLines(),
                ElementsAre("HTTP/1.1 100 Continue", "HTTP/1.1 200 Status"));
}

TEST_F(HttpUpload, AnExpectHeaderWithoutAValueMakesAnUploadNotAsk)
{
    for (const HttpMethod method : {HttpMethod::EhttpPost, HttpMethod::EhttpPut}) {
        Configuration configuration = Request(Url("/mirror"), method, "abc");
        configuration.headers = {{"Expect", ""}};
        const Response response = Fetch(configuration);
        EXPECT_EQ(response.Value("X-Seen-Expect"), "-");
        EXPECT_THAT(response.StatusLines(), ElementsAre("HTTP/1.1 200 Status"));
        EXPECT_EQ(response.body, "abc");
    }
}

TEST_F(HttpUpload, AnUploadGoesOutAlsoToAServerThatNeverAnswersWhetherItMay)
{
    const Response response = Fetch(Request(Url("/silent-mirror"), HttpMethod::EhttpPost, "abc"));
    EXPECT_EQ(response.Value("X-Seen-Expect"), "100-continue");
    EXPECT_EQ(response.body, "abc");
}

TEST_F(HttpUpload, APostIsDeclaredAsAFormUnlessTheClientSaysWhatItIs)
{
    Configuration configuration = Request(Url("/echo"), HttpMethod::EhttpPost, "abc");
    EXPECT_THAT(Fetch(configuration).body,
                HasSubstr("\r\nContent-Type: application/x-www-form-urlencoded\r\n"));
    configuration.headers = {{"Content-Type", "application/octet-stream"}};
    EXPECT_THAT(Fetch(configuration).body,
                HasSubstr("\r\nContent-Type: application/octet-stream\r\n"));
}

TEST_F(HttpUpload, EachReadOfTheBodyIsLogged)
{
    Fetch(Request(Url("/mirror"), HttpMethod::EhttpPost, "abc"));
    const std::vector<std::string> reads = log.MessagesOf("s_ReadBodyCallback");
    ASSERT_EQ(reads.size(), 2U);
    EXPECT_THAT(reads[0], StartsWith("remain: 3 buffer-size: "));
    EXPECT_THAT(reads[1], StartsWith("remain: 0 buffer-size: "));
}

class RedirectedPost : public HttpUpload, public ::testing::WithParamInterface<int>
{
};
class RedirectedPut : public HttpUpload, public ::testing::WithParamInterface<int>
{
};

INSTANTIATE_TEST_SUITE_P(Status, RedirectedPost, ::testing::Values(301, 302, 303, 307, 308),
                         ::testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Status, RedirectedPut, ::testing::Values(301, 302, 307, 308),
                         ::testing::PrintToStringParamName());

// It stays a POST after every status, and libcurl cannot read the body a second time.
TEST_P(RedirectedPost, AfterItsBodyWasReadEndsWithTheRewindError)
{
    const std::string url = Url("/redirect/" + std::to_string(GetParam()) + "/1");
    const Response response = Fetch(Request(url, HttpMethod::EhttpPost, "abc"));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, GetParam());
    EXPECT_EQ(log.Count(ErrorLine(CURLE_SEND_FAIL_REWIND, GetParam(), url)), 1U);
}

TEST_P(RedirectedPut, AfterItsBodyWasReadEndsWithTheRewindError)
{
    const std::string url = Url("/redirect/" + std::to_string(GetParam()) + "/1");
    const Response response = Fetch(Request(url, HttpMethod::EhttpPut, "abc"));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, GetParam());
    EXPECT_EQ(log.Count(ErrorLine(CURLE_SEND_FAIL_REWIND, GetParam(), url)), 1U);
}

// The option for a request without a body comes after the one for the method, and changes it.
TEST_F(HttpUpload, WithoutAWishForTheAnswerAnUploadIsAHeadThatSucceeds)
{
    for (const HttpMethod method : {HttpMethod::EhttpPost, HttpMethod::EhttpPut}) {
        VORTAN_MW::ITransferHandler::Bytes header;
        const auto result = VORTAN_MW::CurlEasyHandlerFactory().Create()->GetTransfer(
            Request(Url("/mirror"), method, "abc"),
            boost::optional<VORTAN_MW::ITransferHandler::Bytes&>(header), boost::none);
        EXPECT_TRUE(result.success);
        const std::string text(header.begin(), header.end());
        EXPECT_THAT(text, HasSubstr("X-Seen-Request: HEAD /mirror HTTP/1.1\r\n"));
        EXPECT_THAT(text, HasSubstr("\r\nContent-Length: 0\r\n")) << "of what was received";
    }
}

TEST_F(HttpUpload, TheDefaultMethodDoesNotSendABody)
{
    const Response response = Fetch(Request(Url("/echo"), HttpMethod::Default, "abc"));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.body, StartsWith("GET /echo HTTP/1.1\r\n"));
}

TEST_F(HttpUpload, APutToldToSeeAnotherAddressGetsItWithoutABody)
{
    const Response response = Fetch(Request(Url("/redirect/303/1"), HttpMethod::EhttpPut, "abc"));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.body, StartsWith("GET /echo HTTP/1.1\r\n"));
}

}  // namespace
