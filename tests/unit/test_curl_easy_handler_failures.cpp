// What the libcurl handler does when libcurl, memory or a client's callback fails.

#include <stdexcept>
#include <utility>

#include "CurlHandlerTest.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using ::testing::Pointee;

namespace {

class CurlHandlerFailures : public CurlHandlerTest
{
protected:
    // Performs, and returns what the exception that came out of the transfer says.
    std::string CaughtFromTransfer() const
    {
        try {
            Transfer();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing";
    }

    static Handler::ChunkCallback Thrower(const std::string& what)
    {
        return [what](std::unique_ptr<Bytes>, void*) -> bool { throw std::runtime_error(what); };
    }

    void ExpectCleanUpWithoutAnswer() const
    {
        EXPECT_EQ(curl.CallsOf("slist_free_all").size(), 1U);
        EXPECT_EQ(curl.CallsOf("easy_cleanup").size(), 1U);
        EXPECT_EQ(curl.Calls().back(), "easy_cleanup");
    }
};

TEST_F(CurlHandlerFailures, WithoutAHandleNothingIsSetOrEmptied)
{
    curl.initFails = true;
    body = BytesOf("old");
    detail.dataBuffer = &body;
    const Handler::Result result = Transfer();
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.httpCode, IsNull());
    EXPECT_EQ(body, BytesOf("old"));
    EXPECT_THAT(curl.Calls(), ElementsAre("easy_init"));
    EXPECT_THAT(log.Summaries(), ElementsAre("D DoTransfer: url: http://server/"));
}

class CurlHandlerErrors : public CurlHandlerFailures, public ::testing::WithParamInterface<CURLcode>
{
};

TEST_P(CurlHandlerErrors, AFailedPerformIsTheResultAndOneErrorLine)
{
    const CURLcode code = GetParam();
    curl.perform = [code](const CurlDoublePerform&) { return code; };
    curl.responseCode = 404;
    const Handler::Result result = Transfer();
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.httpCode, Pointee(404));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D DoTransfer: url: http://server/",
                            "E DoTransfer: curl_easy_perform() failed: 'the double's text', "
                            "http-code: 404 accessing http://server/"));
    EXPECT_THAT(Strings(curl.Calls().end() - 5, curl.Calls().end()),
                ElementsAre("easy_perform", "slist_free_all [Cache-control: no-cache]",
                            "easy_getinfo RESPONSE_CODE", "easy_strerror " + std::to_string(code),
                            "easy_cleanup"));
}

INSTANTIATE_TEST_SUITE_P(EveryKind, CurlHandlerErrors,
                         ::testing::Values(CURLE_UNSUPPORTED_PROTOCOL, CURLE_COULDNT_RESOLVE_HOST,
                                           CURLE_HTTP_RETURNED_ERROR, CURLE_WRITE_ERROR,
                                           CURLE_SEND_FAIL_REWIND),
                         [](const ::testing::TestParamInfo<CURLcode>& code) {
                             return "Code" + std::to_string(code.param);
                         });

TEST_F(CurlHandlerFailures, AnUnansweredTransferTellsHttpCodeZero)
{
    curl.perform = [](const CurlDoublePerform&) { return CURLE_COULDNT_CONNECT; };
    curl.responseCode = boost::none;
    EXPECT_THAT(Transfer().httpCode, Pointee(0));
    EXPECT_EQ(log.Count("curl_easy_perform() failed: 'the double's text', http-code: 0 accessing "
                        "http://server/"),
              1U);
}

TEST_F(CurlHandlerFailures, AUrlEndsAtItsFirstZeroByte)
{
    detail.url = std::string("http://server/a\0b", 17);
    curl.perform = [](const CurlDoublePerform&) { return CURLE_COULDNT_CONNECT; };
    Transfer();
    EXPECT_THAT(curl.CallsOf("easy_setopt URL"),
                ElementsAre("easy_setopt URL \"http://server/a\""));
    EXPECT_EQ(log.Count("curl_easy_perform() failed: 'the double's text', http-code: 200 accessing "
                        "http://server/a"),
              1U);
}

TEST_F(CurlHandlerFailures, BuffersAreEmptiedAlsoWhenPerformFails)
{
    header = BytesOf("old");
    body = BytesOf("old");
    detail.headerBuffer = &header;
    detail.dataBuffer = &body;
    curl.perform = [](const CurlDoublePerform&) { return CURLE_COULDNT_CONNECT; };
    Transfer();
    EXPECT_THAT(header, IsEmpty());
    EXPECT_THAT(body, IsEmpty());
}

TEST_F(CurlHandlerFailures, ARefusedChunkFailsTheTransferAndStaysInTheBuffer)
{
    detail.dataBuffer = &body;
    detail.dataCallback = [](std::unique_ptr<Bytes>, void*) { return false; };
    curl.perform = [](const CurlDoublePerform& perform) {
        return perform.Body("abc") == 3 ? CURLE_OK : CURLE_WRITE_ERROR;
    };
    EXPECT_FALSE(Transfer().success);
    EXPECT_EQ(body, BytesOf("abc"));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D DoTransfer: url: http://server/",
                            "D s_WriteCallback: callback failed processing: http://server/",
                            "E DoTransfer: curl_easy_perform() failed: 'the double's text', "
                            "http-code: 200 accessing http://server/"));
}

TEST_F(CurlHandlerFailures, AHeaderLineThatCannotBeAppendedIsLeftOut)
{
    detail.headers = {{"A", "1"}, {"B", "2"}, {"C", "3"}};
    curl.refusedLines = {"B: 2"};
    EXPECT_TRUE(Transfer().success);
    EXPECT_THAT(curl.CallsOf("easy_setopt HTTPHEADER"),
                ElementsAre("easy_setopt HTTPHEADER [Cache-control: no-cache, A: 1, C: 3]"));
}

TEST_F(CurlHandlerFailures, TheFirstHeaderLineMayBeTheOneThatCannotBeAppended)
{
    detail.headers = {{"A", "1"}};
    curl.refusedLines = {"Cache-control: no-cache"};
    EXPECT_TRUE(Transfer().success);
    EXPECT_THAT(curl.CallsOf("easy_setopt HTTPHEADER"),
                ElementsAre("easy_setopt HTTPHEADER [A: 1]"));
}

TEST_F(CurlHandlerFailures, WithNoHeaderLineAtAllTheTransferStillGoesOut)
{
    curl.refusedLines = {"Cache-control: no-cache"};
    EXPECT_TRUE(Transfer().success);
    EXPECT_THAT(curl.CallsOf("easy_setopt HTTPHEADER"), ElementsAre("easy_setopt HTTPHEADER []"));
}

TEST_F(CurlHandlerFailures, AnExceptionFromTheHeaderCallbackLeavesTheTransferAfterTheCleanUp)
{
    detail.headerCallback = Thrower("header");
    std::size_t accepted = 1;
    curl.perform = [&](const CurlDoublePerform& perform) {
        accepted = perform.Header("HTTP/1.1 200 OK\r\n");
        return CURLE_WRITE_ERROR;
    };
    EXPECT_EQ(CaughtFromTransfer(), "header");
    EXPECT_EQ(accepted, 0U);
    ExpectCleanUpWithoutAnswer();
    EXPECT_THAT(log.Summaries(), ElementsAre("D DoTransfer: url: http://server/"));
}

TEST_F(CurlHandlerFailures, AnExceptionFromTheDataCallbackLeavesTheTransferAfterTheCleanUp)
{
    detail.dataCallback = Thrower("data");
    std::size_t accepted = 1;
    curl.perform = [&](const CurlDoublePerform& perform) {
        accepted = perform.Body("abc");
        return CURLE_WRITE_ERROR;
    };
    EXPECT_EQ(CaughtFromTransfer(), "data");
    EXPECT_EQ(accepted, 0U);
    ExpectCleanUpWithoutAnswer();
}

TEST_F(CurlHandlerFailures, AnExceptionWhileTheBodyIsReadAbortsTheUpload)
{
    log.OnLine([](const LogLine& line) {
        if (line.function == "s_ReadBodyCallback") {
            throw std::runtime_error("read");
        }
    });
    detail.method = HttpMethod::EhttpPut;
    detail.requestBody = "abc";
    std::size_t code = 0;
    curl.perform = [&](const CurlDoublePerform& perform) {
        perform.Read(2, &code);
        return CURLE_ABORTED_BY_CALLBACK;
    };
    EXPECT_EQ(CaughtFromTransfer(), "read");
    EXPECT_EQ(code, std::size_t{CURL_READFUNC_ABORT});
    ExpectCleanUpWithoutAnswer();
}

TEST_F(CurlHandlerFailures, AnythingThrownKeepsItsType)
{
    detail.dataCallback = [](std::unique_ptr<Bytes>, void*) -> bool { throw 7; };
    curl.perform = [](const CurlDoublePerform& perform) {
        perform.Body("abc");
        return CURLE_WRITE_ERROR;
    };
    try {
        Transfer();
        FAIL() << "nothing was thrown";
    } catch (int thrown) {
        EXPECT_EQ(thrown, 7);
    }
}

TEST_F(CurlHandlerFailures, OfSeveralExceptionsTheFirstIsTheOneThatLeaves)
{
    detail.headerCallback = Thrower("first");
    detail.dataCallback = Thrower("second");
    curl.perform = [](const CurlDoublePerform& perform) {
        perform.Header("HTTP/1.1 200 OK\r\n");
        perform.Body("abc");
        return CURLE_OK;
    };
    EXPECT_EQ(CaughtFromTransfer(), "first");
}

TEST_F(CurlHandlerFailures, AnExceptionLeavesAlsoWhenPerformSaysThatAllIsWell)
{
    detail.dataCallback = Thrower("data");
    curl.perform = [](const CurlDoublePerform& perform) {
        perform.Body("abc");
        return CURLE_OK;
    };
    EXPECT_EQ(CaughtFromTransfer(), "data");
}

TEST_F(CurlHandlerFailures, TheTransferAfterAnExceptionIsUntouchedByIt)
{
    detail.dataCallback = Thrower("data");
    curl.perform = [](const CurlDoublePerform& perform) {
        perform.Body("abc");
        return CURLE_WRITE_ERROR;
    };
    EXPECT_EQ(CaughtFromTransfer(), "data");
    curl.perform = [](const CurlDoublePerform&) { return CURLE_OK; };
    EXPECT_TRUE(Transfer().success);
}

// A transfer whose data callback runs another one, whose data callback is inner.
class CurlHandlerNesting : public CurlHandlerFailures
{
protected:
    CurlHandlerNesting()
    {
        innerDetail.url = "http://inner/";
        curl.perform = [](const CurlDoublePerform& perform) {
            return perform.Body("abc") == 3 ? CURLE_OK : CURLE_WRITE_ERROR;
        };
    }

    bool InnerTransfer() const
    {
        return VORTAN_MW::CurlEasyHandler().DoTransfer(innerDetail).success;
    }

    Handler::TransferDetail innerDetail;
};

TEST_F(CurlHandlerNesting, ACallbackMayItselfTransfer)
{
    innerDetail.dataCallback = [](std::unique_ptr<Bytes>, void*) { return true; };
    bool innerSuccess = false;
    detail.dataCallback = [&](std::unique_ptr<Bytes>, void*) {
        innerSuccess = InnerTransfer();
        return true;
    };
    EXPECT_TRUE(Transfer().success);
    EXPECT_TRUE(innerSuccess);
}

TEST_F(CurlHandlerNesting, AnInnerExceptionBelongsToTheInnerTransfer)
{
    innerDetail.dataCallback = Thrower("inner");
    std::string caught;
    detail.dataCallback = [&](std::unique_ptr<Bytes>, void*) {
        try {
            InnerTransfer();
        } catch (const std::runtime_error& error) {
            caught = error.what();
        }
        return true;
    };
    EXPECT_TRUE(Transfer().success);
    EXPECT_EQ(caught, "inner");
}

TEST_F(CurlHandlerNesting, AnInnerExceptionThatIsNotCaughtGoesThroughBothTransfers)
{
    innerDetail.dataCallback = Thrower("inner");
    detail.dataCallback = [&](std::unique_ptr<Bytes>, void*) { return InnerTransfer(); };
    EXPECT_EQ(CaughtFromTransfer(), "inner");
    EXPECT_EQ(curl.CallsOf("easy_cleanup").size(), 2U);
}

TEST_F(CurlHandlerNesting, AnExceptionAfterAnInnerTransferBelongsToTheOuterOne)
{
    std::vector<std::size_t> taken;
    curl.perform = [&](const CurlDoublePerform& perform) {
        taken.push_back(perform.Body("abc"));
        return taken.back() == 3 ? CURLE_OK : CURLE_WRITE_ERROR;
    };
    innerDetail.dataCallback = [](std::unique_ptr<Bytes>, void*) { return true; };
    detail.dataCallback = [&](std::unique_ptr<Bytes>, void*) -> bool {
        InnerTransfer();
        throw std::runtime_error("outer");
    };
    EXPECT_EQ(CaughtFromTransfer(), "outer");
    // It does not cross libcurl's frames: there the outer callback returns 0.
    EXPECT_THAT(taken, ElementsAre(3, 0));
}

TEST_F(CurlHandlerNesting, TheOuterTransferStillKnowsItsAnnouncedLengthAfterAnInnerOne)
{
    curl.announcedLength = 100000;
    detail.dataBuffer = &body;
    detail.headerCallback = [&](std::unique_ptr<Bytes>, void*) { return InnerTransfer(); };
    bool isInner = false;
    curl.perform = [&](const CurlDoublePerform& perform) {
        if (!std::exchange(isInner, true)) {
            perform.Header("HTTP/1.1 200 OK\r\n");
            perform.Body("a");
        }
        return CURLE_OK;
    };
    EXPECT_TRUE(Transfer().success);
    EXPECT_EQ(body.capacity(), 100000U);
}

}  // namespace
