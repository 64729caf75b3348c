// Which of libcurl's functions are called, in which order and with which values.

#include <limits>

#include "CurlHandlerTest.h"

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Pointee;

namespace {

constexpr std::size_t MiB = std::size_t{1024} * 1024;

class CurlHandlerOptions : public CurlHandlerTest
{
protected:
    // The calls of a transfer that wants header and body, with these for its method.
    static Strings CallsWithMethod(const Strings& methodCalls)
    {
        Strings calls = {"easy_init", "easy_setopt URL \"http://server/\""};
        calls.insert(calls.end(), methodCalls.begin(), methodCalls.end());
        const Strings rest = {"easy_setopt HEADERFUNCTION s_WriteHeaderCallback",
                              "easy_setopt HEADERDATA detail",
                              "easy_setopt WRITEFUNCTION s_WriteBodyCallback",
                              "easy_setopt WRITEDATA detail",
                              "easy_setopt USERAGENT \"libcurl-agent/1.0\"",
                              "easy_setopt FAILONERROR 1",
                              "easy_setopt FOLLOWLOCATION 1",
                              "easy_setopt ACCEPT_ENCODING \"\"",
                              "slist_append \"Cache-control: no-cache\"",
                              "easy_setopt HTTPHEADER [Cache-control: no-cache]",
                              "easy_perform",
                              "slist_free_all [Cache-control: no-cache]",
                              "easy_getinfo RESPONSE_CODE",
                              "easy_cleanup"};
        calls.insert(calls.end(), rest.begin(), rest.end());
        return calls;
    }

    void WantBothInBuffers()
    {
        detail.headerBuffer = &header;
        detail.dataBuffer = &body;
    }

    // What is set between the method and the user agent.
    Strings DeliveryCalls() const
    {
        const Strings all = curl.CallsOf("easy_setopt");
        const auto end =
            std::find(all.begin(), all.end(), "easy_setopt USERAGENT \"libcurl-agent/1.0\"");
        return {all.begin() + 1, end};
    }
};

TEST_F(CurlHandlerOptions, TheDefaultMethodSetsNoMethodOption)
{
    WantBothInBuffers();
    Transfer();
    EXPECT_THAT(curl.Calls(), ElementsAreArray(CallsWithMethod({})));
}

TEST_F(CurlHandlerOptions, AnUnknownMethodSetsNoMethodOption)
{
    WantBothInBuffers();
    detail.method = static_cast<HttpMethod>(5);
    Transfer();
    EXPECT_THAT(curl.Calls(), ElementsAreArray(CallsWithMethod({})));
}

TEST_F(CurlHandlerOptions, AGetSetsHttpget)
{
    WantBothInBuffers();
    detail.method = HttpMethod::EhttpGet;
    Transfer();
    EXPECT_THAT(curl.Calls(), ElementsAreArray(CallsWithMethod({"easy_setopt HTTPGET 1"})));
}

TEST_F(CurlHandlerOptions, AHeadInstallsNoBodyFunctionAndSetsNobodyTwice)
{
    WantBothInBuffers();
    detail.method = HttpMethod::EhttpHead;
    Transfer();
    EXPECT_THAT(
        DeliveryCalls(),
        ElementsAre("easy_setopt NOBODY 1", "easy_setopt HEADERFUNCTION s_WriteHeaderCallback",
                    "easy_setopt HEADERDATA detail", "easy_setopt NOBODY 1"));
}

TEST_F(CurlHandlerOptions, AHeadStillEmptiesTheBodyBuffer)
{
    WantBothInBuffers();
    body = BytesOf("old");
    detail.method = HttpMethod::EhttpHead;
    Transfer();
    EXPECT_THAT(body, IsEmpty());
}

TEST_F(CurlHandlerOptions, APostUploadsAndStaysAPostOverRedirects)
{
    WantBothInBuffers();
    detail.method = HttpMethod::EhttpPost;
    detail.requestBody = std::string("a\0b\r\n", 5);
    Transfer();
    EXPECT_THAT(curl.Calls(), ElementsAreArray(CallsWithMethod({
                                  "easy_setopt POST 1",
                                  "easy_setopt READFUNCTION s_ReadBodyCallback",
                                  "easy_setopt READDATA detail",
                                  "easy_setopt INFILESIZE_LARGE 5",
                                  "easy_setopt POSTREDIR 7",
                              })));
}

TEST_F(CurlHandlerOptions, APutUploadsWithoutARedirectOption)
{
    WantBothInBuffers();
    detail.method = HttpMethod::EhttpPut;
    detail.requestBody = std::string(1234567, 'x');
    Transfer();
    EXPECT_THAT(curl.Calls(), ElementsAreArray(CallsWithMethod({
                                  "easy_setopt UPLOAD 1",
                                  "easy_setopt PUT 1",
                                  "easy_setopt READFUNCTION s_ReadBodyCallback",
                                  "easy_setopt READDATA detail",
                                  "easy_setopt INFILESIZE_LARGE 1234567",
                              })));
}

TEST_F(CurlHandlerOptions, APostWithoutABodyDeclaresLengthZeroAndEndsItsUploadAtOnce)
{
    detail.method = HttpMethod::EhttpPost;
    std::size_t code = 1;
    curl.perform = [&](const CurlDoublePerform& perform) {
        perform.Read(16, &code);
        return CURLE_OK;
    };
    Transfer();
    EXPECT_THAT(curl.CallsOf("easy_setopt INFILESIZE_LARGE"),
                ElementsAre("easy_setopt INFILESIZE_LARGE 0"));
    EXPECT_EQ(code, 0U);
}

TEST_F(CurlHandlerOptions, CallbacksInstallTheSameFunctionsAsBuffers)
{
    const auto accept = [](std::unique_ptr<Bytes>, void*) { return true; };
    detail.headerCallback = accept;
    detail.dataCallback = accept;
    Transfer();
    EXPECT_THAT(curl.Calls(), ElementsAreArray(CallsWithMethod({})));
}

TEST_F(CurlHandlerOptions, OnlyTheHeaderWantedAsksForNoBody)
{
    detail.headerBuffer = &header;
    Transfer();
    EXPECT_THAT(DeliveryCalls(),
                ElementsAre("easy_setopt HEADERFUNCTION s_WriteHeaderCallback",
                            "easy_setopt HEADERDATA detail", "easy_setopt NOBODY 1"));
}

TEST_F(CurlHandlerOptions, OnlyTheBodyWantedInstallsNoHeaderFunction)
{
    detail.dataCallback = [](std::unique_ptr<Bytes>, void*) { return true; };
    Transfer();
    EXPECT_THAT(DeliveryCalls(), ElementsAre("easy_setopt WRITEFUNCTION s_WriteBodyCallback",
                                             "easy_setopt WRITEDATA detail"));
}

TEST_F(CurlHandlerOptions, NeitherWantedIsAHeaderOnlyRequestThatNobodyReads)
{
    const Handler::Result result = Transfer();
    EXPECT_THAT(DeliveryCalls(), ElementsAre("easy_setopt NOBODY 1"));
    EXPECT_TRUE(result.success);
}

TEST_F(CurlHandlerOptions, FailOnErrorIsPassedOn)
{
    detail.failOnError = false;
    Transfer();
    EXPECT_THAT(curl.CallsOf("easy_setopt FAILONERROR"), ElementsAre("easy_setopt FAILONERROR 0"));
}

TEST_F(CurlHandlerOptions, HeadersFollowTheFixedLineInOrder)
{
    detail.headers = {{"B", "2"}, {"A", "1"}, {"B", "2"}, {"Expect", ""}};
    Transfer();
    EXPECT_THAT(
        curl.CallsOf("slist_append"),
        ElementsAre("slist_append \"Cache-control: no-cache\"", "slist_append \"B: 2\"",
                    "slist_append \"A: 1\"", "slist_append \"B: 2\"", "slist_append \"Expect: \""));
    const std::string list = "[Cache-control: no-cache, B: 2, A: 1, B: 2, Expect: ]";
    EXPECT_THAT(curl.CallsOf("easy_setopt HTTPHEADER"),
                ElementsAre("easy_setopt HTTPHEADER " + list));
    EXPECT_THAT(curl.CallsOf("slist_free_all"), ElementsAre("slist_free_all " + list));
}

TEST_F(CurlHandlerOptions, RefusedOptionsDoNotStopTheTransfer)
{
    WantBothInBuffers();
    curl.optionResult = CURLE_UNKNOWN_OPTION;
    EXPECT_TRUE(Transfer().success);
    EXPECT_THAT(curl.Calls(), ElementsAreArray(CallsWithMethod({})));
}

TEST_F(CurlHandlerOptions, FieldsOfOtherHandlersChangeNothing)
{
    WantBothInBuffers();
    detail.reservedFlag = true;
    detail.httpVersion = Handler::Configuration::HttpVersion::Eversion10;
    detail.bodyParts = {BytesOf("part")};
    detail.halvordConfig = Handler::Configuration::HalvordConfig{"resource", {{"key", "value"}}};
    detail.allowSelfSignedCertificates = true;
    detail.timeoutArg1 = 1;
    detail.wrapperOption30 = std::numeric_limits<long>::max();
    detail.verbose = true;
    detail.fixedDelay = 3600000;
    Transfer();
    EXPECT_THAT(curl.Calls(), ElementsAreArray(CallsWithMethod({})));
}

TEST_F(CurlHandlerOptions, TheEntryLineTellsTheUrlAndASuccessLogsNothingElse)
{
    WantBothInBuffers();
    curl.responseCode = 206;
    const Handler::Result result = Transfer();
    EXPECT_TRUE(result.success);
    EXPECT_THAT(result.httpCode, Pointee(206));
    EXPECT_THAT(log.Summaries(), ElementsAre("D DoTransfer: url: http://server/"));
}

TEST_F(CurlHandlerOptions, WithoutAResponseTheHttpCodeIsZero)
{
    curl.responseCode = boost::none;
    EXPECT_THAT(Transfer().httpCode, Pointee(0));
}

TEST_F(CurlHandlerOptions, BytesReachTheBuffersInPlaceOfWhatWasThere)
{
    WantBothInBuffers();
    header = BytesOf("old header");
    body = BytesOf("old body");
    curl.perform = [](const CurlDoublePerform& perform) {
        EXPECT_EQ(perform.Header("HTTP/1.1 200 OK\r\n"), 17U);
        EXPECT_EQ(perform.Header("\r\n"), 2U);
        EXPECT_EQ(perform.Body(std::string("a\0", 2)), 2U);
        EXPECT_EQ(perform.Body("b"), 1U);
        return CURLE_OK;
    };
    Transfer();
    EXPECT_EQ(header, BytesOf("HTTP/1.1 200 OK\r\n\r\n"));
    EXPECT_EQ(body, BytesOf(std::string("a\0b", 3)));
}

TEST_F(CurlHandlerOptions, ABodyBufferHasRoomForTheAnnouncedBytesFromTheStart)
{
    detail.dataBuffer = &body;
    curl.announcedLength = 100000;
    curl.perform = [this](const CurlDoublePerform& perform) {
        perform.Body("a");
        const std::uint8_t* const bytes = body.data();
        perform.Body(std::string(99999, 'b'));
        EXPECT_EQ(body.data(), bytes);
        return CURLE_OK;
    };
    Transfer();
    EXPECT_EQ(body, BytesOf("a" + std::string(99999, 'b')));
    EXPECT_EQ(body.capacity(), 100000U);
    EXPECT_EQ(curl.CallsOf("easy_getinfo CONTENT_LENGTH").size(), 1U);
}

TEST_F(CurlHandlerOptions, TheRoomForALongBodyGrowsInFewStepsToExactlyTheAnnouncedBytes)
{
    constexpr std::size_t length = 257 * MiB;
    detail.dataBuffer = &body;
    curl.announcedLength = length;
    std::vector<std::size_t> steps;
    curl.perform = [&](const CurlDoublePerform& perform) {
        const std::string chunk(MiB / 4 + 1, 'b');
        while (steps.empty() || steps.back() < length) {
            perform.Body(chunk);
            if (steps.empty() || steps.back() != body.capacity()) {
                steps.push_back(body.capacity());
            }
        }
        return CURLE_PARTIAL_FILE;
    };
    Transfer();
    EXPECT_THAT(steps, ElementsAre(length / 8, length));
}

TEST_F(CurlHandlerOptions, AServerThatAnnouncesWhatItDoesNotSendGetsLittleMemory)
{
    detail.dataBuffer = &body;
    curl.announcedLength = std::numeric_limits<curl_off_t>::max();
    curl.perform = [this](const CurlDoublePerform& perform) {
        perform.Body("a");
        EXPECT_LE(body.capacity(), 64 * MiB);
        const std::size_t first = body.capacity();
        perform.Body(std::string(first, 'b'));
        EXPECT_LE(body.capacity(), 8 * first);
        return CURLE_PARTIAL_FILE;
    };
    EXPECT_FALSE(Transfer().success);
}

TEST_F(CurlHandlerOptions, ABodyIsLongerThanAnnouncedOnceItIsDecoded)
{
    detail.dataBuffer = &body;
    curl.announcedLength = 2;
    curl.perform = [](const CurlDoublePerform& perform) {
        perform.Body("a");
        perform.Body("bcd");
        perform.Body("efghi");
        return CURLE_OK;
    };
    Transfer();
    EXPECT_EQ(body, BytesOf("abcdefghi"));
}

TEST_F(CurlHandlerOptions, TheAnnouncedLengthSaysNothingAboutTheHeader)
{
    detail.headerBuffer = &header;
    curl.announcedLength = 100000;
    curl.perform = [](const CurlDoublePerform& perform) {
        perform.Header("HTTP/1.1 200 OK\r\n");
        return CURLE_OK;
    };
    Transfer();
    EXPECT_LT(header.capacity(), 100U);
}

TEST_F(CurlHandlerOptions, OneHandlerPerformsAnyNumberOfTransfersEachOnAHandleOfItsOwn)
{
    const VORTAN_MW::CurlEasyHandler handler;
    handler.DoTransfer(detail);
    handler.DoTransfer(detail);
    EXPECT_EQ(curl.CallsOf("easy_init").size(), 2U);
    EXPECT_EQ(curl.CallsOf("easy_cleanup").size(), 2U);
}

}  // namespace
