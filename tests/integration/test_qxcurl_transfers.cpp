// The wrapper library's stand-in on its own, to a server that does as the URL says.

#include <QXCurl.h>
#include <curl/curl.h>
#include <gmock/gmock.h>

#include <climits>
#include <stdexcept>

#include "LoopbackPort.h"
#include "ServerTest.h"

using namespace QXCurl;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

unsigned int Append(char* data, unsigned int size, unsigned int count, void* text)
{
    static_cast<std::string*>(text)->append(data, std::size_t{size} * count);
    return size * count;
}

// More than any buffer holds, and a number that would pause libcurl.
unsigned int ClaimMore(char* /*data*/, unsigned int /*size*/, unsigned int /*count*/,
                       void* /*text*/)
{
    static_assert(CURL_WRITEFUNC_PAUSE == CURL_READFUNC_PAUSE);
    return CURL_WRITEFUNC_PAUSE;
}

unsigned int TakeLess(char* /*data*/, unsigned int size, unsigned int count, void* /*text*/)
{
    return size * count - 1;
}

unsigned int Throw(char* /*data*/, unsigned int /*size*/, unsigned int /*count*/, void* /*text*/)
{
    throw std::runtime_error("client");
}

// Gives what is left of the text.
unsigned int TakeFrom(char* data, unsigned int size, unsigned int count, void* text)
{
    auto& left = *static_cast<std::string*>(text);
    const std::size_t given = left.copy(data, std::size_t{size} * count);
    left.erase(0, given);
    return static_cast<unsigned int>(given);
}

class QXCurlTransfer : public ServerTest<OddServer>
{
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        easy = std::make_unique<QXCurlEasy>();
        EXPECT_TRUE(easy->Initialize());
    }

    void TearDown() override
    {
        easy.reset();  // closes the connection, which it keeps for another transfer
        ServerTest::TearDown();
    }

    void SetUrl(const std::string& path) { easy->setOption(QXCURL_OPTION_URL, Url(path)); }

    void SetBodySink(unsigned int (*sink)(char*, unsigned int, unsigned int, void*))
    {
        easy->setOption(QXCURL_OPTION_WRITEFUNCTION, sink);
        easy->setOption(QXCURL_OPTION_WRITEDATA, static_cast<void*>(&body));
    }

    void SetSource(unsigned int (*source)(char*, unsigned int, unsigned int, void*))
    {
        easy->setOption(QXCURL_OPTION_READFUNCTION, source);
        easy->setOption(QXCURL_OPTION_READDATA, static_cast<void*>(&upload));
    }

    // Sends, and returns the body of the response.
    std::string Send()
    {
        body.clear();
        SetBodySink(&Append);
        EXPECT_TRUE(easy->send()) << easy->getLastError();
        return body;
    }

    long ResponseCode()
    {
        long code = -1;
        easy->getInfo(QXCURL_INFO_RESPONSE_CODE, &code);
        return code;
    }

    // The request for "/echo" as it is sent when nothing else is set.
    static std::string PlainRequest()
    {
        const std::string host = Url("").substr(std::string("http://").size());
        return "GET /echo HTTP/1.1\r\nHost: " + host + "\r\nAccept: */*\r\n\r\n";
    }

    std::unique_ptr<QXCurlEasy> easy;
    std::string body;
    std::string upload;
};

TEST_F(QXCurlTransfer, IsAGetWithoutFurtherLinesWhenOnlyAUrlIsSet)
{
    SetUrl("/echo");
    EXPECT_EQ(Send(), PlainRequest());
    EXPECT_EQ(ResponseCode(), 200);
    EXPECT_EQ(easy->getLastError(), "");
}

TEST_F(QXCurlTransfer, KeepsCopiesOfTheOptions)
{
    {
        std::string url = Url("/echo");
        std::list<std::string> lines = {"X-A: 1"};
        easy->setOption(QXCURL_OPTION_URL, url);
        easy->setOption(QXCURL_OPTION_HTTPHEADER, lines);
        url.assign(url.size(), 'x');
        lines.front().assign("X-B: 2");
    }
    EXPECT_THAT(Send(), EndsWith("\r\nX-A: 1\r\n\r\n"));
}

TEST_F(QXCurlTransfer, IsNotChangedByForwardedAndUnknownOptions)
{
    SetUrl("/echo");
    for (const int option : {2, 3, 20, 21, 27, 30, 31, 32, 77}) {
        for (const long value : {-1L, 1L, 1000000L}) {
            easy->setOption(static_cast<QXCURL_OPTION_TYPE>(option), value);
            EXPECT_EQ(Send(), PlainRequest());
        }
    }
}

TEST_F(QXCurlTransfer, IsNotChangedByAValueOfAnotherType)
{
    SetUrl("/echo");
    easy->setOption(QXCURL_OPTION_POST, std::string("1"));
    easy->setOption(QXCURL_OPTION_HTTPHEADER, std::string("X-A: 1"));
    EXPECT_EQ(Send(), PlainRequest());
}

TEST_F(QXCurlTransfer, CanBeFollowedByAnotherWithTheSameOptions)
{
    SetUrl("/echo");
    EXPECT_EQ(Send(), Send());
}

TEST_F(QXCurlTransfer, IsForgottenOnReset)
{
    SetUrl("/status/404");
    easy->setOption(QXCURL_OPTION_HTTPHEADER, std::list<std::string>{"X-A: 1"});
    easy->setVistrelClient("client");
    easy->setVistrelHeader(QXCurlEasy::QXCURL_HDR_CLIENT);
    Send();
    EXPECT_EQ(ResponseCode(), 404);
    easy->reset();
    EXPECT_EQ(ResponseCode(), 0);
    SetUrl("/echo");
    EXPECT_EQ(Send(), PlainRequest());
}

TEST_F(QXCurlTransfer, ThatFailsHasNoResponseCodeAndSaysWhy)
{
    SetUrl("/garbage");
    EXPECT_FALSE(easy->send());
    EXPECT_EQ(ResponseCode(), 0);
    EXPECT_THAT(easy->getLastError(), HasSubstr("Received HTTP/0.9 when not allowed"));
    EXPECT_THAT(easy->getLastError(), EndsWith(", accessing " + Url("/garbage")));
}

TEST_F(QXCurlTransfer, ThatBreaksOffKeepsItsResponseCode)
{
    SetUrl("/truncate/100");
    SetBodySink(&Append);
    EXPECT_FALSE(easy->send());
    EXPECT_EQ(ResponseCode(), 200);
}

TEST_F(QXCurlTransfer, DropsABodyThatNobodyTakes)
{
    SetUrl("/bytes/1000");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(easy->send());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(QXCurlTransfer, EndsWhenASinkTakesLessThanItIsOffered)
{
    SetUrl("/until-closed");
    SetBodySink(&TakeLess);
    EXPECT_FALSE(easy->send());
    EXPECT_THAT(easy->getLastError(), StartsWith("Failed writing received data"));
}

TEST_F(QXCurlTransfer, EndsWhenASinkClaimsToTakeMoreThanItIsOffered)
{
    SetUrl("/until-closed");
    SetBodySink(&ClaimMore);
    EXPECT_FALSE(easy->send());
    EXPECT_THAT(easy->getLastError(), StartsWith("Failed writing received data"));
}

TEST_F(QXCurlTransfer, DropsTheBodyOfAPostsResponseWhenNoneIsWanted)
{
    SetUrl("/mirror");
    easy->setOption(QXCURL_OPTION_POST, 1L);
    easy->setOption(QXCURL_OPTION_INFILESIZE, 3LL);
    easy->setOption(QXCURL_OPTION_NOBODY, 1);
    SetSource(&TakeFrom);
    upload = "abc";
    EXPECT_EQ(Send(), "");
    EXPECT_EQ(upload, "");
}

TEST_F(QXCurlTransfer, EndsWhenASourceClaimsToGiveMoreThanItWasAskedFor)
{
    SetUrl("/mirror");
    easy->setOption(QXCURL_OPTION_PUT, 1);
    SetSource(&ClaimMore);
    EXPECT_FALSE(easy->send());
    EXPECT_THAT(easy->getLastError(),
                StartsWith("Operation was aborted by an application callback"));
}

TEST_F(QXCurlTransfer, IsLeftByWhatACallbackThrows)
{
    SetUrl("/until-closed");
    SetBodySink(&Throw);
    EXPECT_THROW(easy->send(), std::runtime_error);
    easy->setOption(QXCURL_OPTION_HEADERFUNCTION, &Throw);
    SetBodySink(&Append);
    EXPECT_THROW(easy->send(), std::runtime_error);
    EXPECT_EQ(body, "");
    easy->reset();
    SetUrl("/mirror");
    easy->setOption(QXCURL_OPTION_PUT, 1);
    SetSource(&Throw);
    EXPECT_THROW(easy->send(), std::runtime_error);
    easy->reset();
    SetUrl("/echo");
    EXPECT_EQ(Send(), PlainRequest());
}

TEST_F(QXCurlTransfer, ThatIsLeftHasNoResponseCode)
{
    SetUrl("/echo");
    Send();
    SetBodySink(&Throw);
    EXPECT_THROW(easy->send(), std::runtime_error);
    EXPECT_EQ(ResponseCode(), 0);
}

TEST_F(QXCurlTransfer, IsAPutByEitherSwitch)
{
    for (const auto option : {QXCURL_OPTION_PUT, QXCURL_OPTION_UPLOAD}) {
        easy->reset();
        SetUrl("/echo");
        easy->setOption(option, 1);
        EXPECT_THAT(Send(), StartsWith("PUT /echo HTTP/1.1\r\n"));
    }
}

TEST_F(QXCurlTransfer, IsSentInChunksWhenItsSizeIsNotDeclared)
{
    SetUrl("/mirror");
    easy->setOption(QXCURL_OPTION_POST, 1L);
    SetSource(&TakeFrom);
    upload = "abc";
    EXPECT_EQ(Send(), "abc");
    SetUrl("/echo");
    upload = "abc";
    EXPECT_THAT(Send(), HasSubstr("\r\nTransfer-Encoding: chunked\r\n"));
}

TEST_F(QXCurlTransfer, UploadsNothingWithoutASource)
{
    SetUrl("/echo");
    easy->setOption(QXCURL_OPTION_POST, 1L);
    easy->setOption(QXCURL_OPTION_INFILESIZE, 3LL);
    EXPECT_THAT(Send(), HasSubstr("\r\nContent-Length: 0\r\n"));
}

TEST_F(QXCurlTransfer, DoesNotPassForWholeWhenItsSourceThrows)
{
    SetUrl("/echo");
    easy->setOption(QXCURL_OPTION_PUT, 1);
    SetSource(&Throw);
    SetBodySink(&Append);
    EXPECT_THROW(easy->send(), std::runtime_error);
    EXPECT_EQ(body, "");
}

TEST_F(QXCurlTransfer, NamesTheClientOnlyWhenItIsTold)
{
    SetUrl("/echo");
    easy->setVistrelClient("client");
    EXPECT_EQ(Send(), PlainRequest());
    easy->setVistrelHeader(QXCurlEasy::QXCURL_HDR_CLIENT);
    EXPECT_THAT(Send(), HasSubstr("\r\nX-Vistrel-Client: client\r\n"));
}

TEST_F(QXCurlTransfer, TellsWhatItDoesWhenItIsVerbose)
{
    SetUrl("/bytes/1");
    testing::internal::CaptureStderr();
    Send();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    easy->setOption(QXCURL_OPTION_VERBOSE, 1L);
    testing::internal::CaptureStderr();
    Send();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("> GET /bytes/1 HTTP/1.1"));
}

TEST_F(QXCurlTransfer, EndsWhenItsTimeIsOver)
{
    SetUrl("/stall/wrapper");
    easy->setTimeout(1, 0);
    EXPECT_FALSE(easy->send());
    EXPECT_THAT(easy->getLastError(), StartsWith("Timeout was reached: "));
    SetUrl("/release/wrapper");
    EXPECT_EQ(Send(), "released");
}

TEST_F(QXCurlTransfer, EndsWhenTheTimeForConnectingIsOver)
{
    LoopbackPort port;
    port.Listen();
    easy->setOption(QXCURL_OPTION_URL, port.Url("https"));
    easy->setTimeout(0, 1);
    EXPECT_FALSE(easy->send());
    EXPECT_THAT(easy->getLastError(), StartsWith("Timeout was reached: "));
}

TEST_F(QXCurlTransfer, HasNoLimitOfTimeForNumbersBelowOne)
{
    SetUrl("/echo");
    for (const int none : {0, -1, INT_MIN}) {
        easy->setTimeout(none, none);
        EXPECT_EQ(Send(), PlainRequest());
    }
    easy->setTimeout(INT_MAX, INT_MAX);
    EXPECT_EQ(Send(), PlainRequest());
}

}  // namespace
