#include <gmock/gmock.h>

#include <stdexcept>

#include "CaughtLog.h"
#include "QXCurlEasyHandler.h"
#include "QXCurlEasyHandlerFactory.h"
#include "RecordingQXCurl.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::IsNull;
using testing::Pointee;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::QXCurlEasyHandler;
using VORTAN_MW::QXCurlEasyHandlerFactory;
using Bytes = ITransferHandler::Bytes;
using Configuration = ITransferHandler::Configuration;
using HalvordConfig = Configuration::HalvordConfig;
using HttpMethod = Configuration::HttpMethod;
using HttpVersion = Configuration::HttpVersion;
using Events = std::vector<std::string>;

// What happens in the course of a request, step by step: calls of the wrapper, and log lines, which
// begin with their level. The defaults are those of a request for "http://host/" that wants neither
// header nor body. A test replaces the steps that it is about.
struct Course
{
    Events opening = {"D DoTransfer:  ", "QXCurlEasy()", "Initialize()"};
    Events maker;
    Events security = {"checkIsHttps(http://host/)"};
    Events url = {"D DoTransfer: Setting final URL to http://host/",
                  "setOption(50, string http://host/)"};
    Events method = {"I DoTransfer: Default"};
    Events version = {"setOption(18, int 2)", "I DoTransfer: HTTP version 1.1"};
    Events header;
    Events body = {"setOption(24, int 1)"};
    Events lines = {"I DoTransfer: Request body size is: 0",
                    "setOption(75, list Content-Length:0)"};
    Events forwarded = {"setOption(30, long 30)",      "setTimeout(0, 10)",
                        "setOption(20, long 1)",       "setOption(21, long 1)",
                        "setOption(31, long 100)",     "setOption(32, long 30)",
                        "setOption(27, long 15728640)"};
    Events verbose;
    Events sending = {"setOption(3, long 0)", "send()", "getInfo(8, 0)",
                      "I DoTransfer: QXCurl send was successfull"};
    Events guard = {"D ~ScopedAction: Executing action..."};
    Events cleanup = {"D ~ScopedAction: Executing action...", "D operator(): Cleaning up QXCurl",
                      "reset()", "~QXCurlEasy()"};

    // Leaves out everything from the security step, from the guard's setting on, or from the URL
    // on.
    void EndBeforeSecurity()
    {
        security.clear();
        EndBeforeUrl();
        guard.clear();
    }

    void EndBeforeUrl()
    {
        for (Events* step :
             {&url, &method, &version, &header, &body, &lines, &forwarded, &verbose, &sending}) {
            step->clear();
        }
    }

    Events All() const
    {
        Events all;
        for (const Events* step :
             {&opening, &maker, &security, &url, &method, &version, &header, &body, &lines,
              &forwarded, &verbose, &sending, &guard, &cleanup}) {
            all.insert(all.end(), step->begin(), step->end());
        }
        return all;
    }
};

const std::string SelfSignedWarning =
    "W DoTransfer: Disabling certificate check as they are self signed, "
    "THIS SHOULD BE USED FOR TESTING ONLY";
const std::string Unlock = "D operator(): Unlocking SSL lock";

Events HttpsWith(const std::string& url, const Events& options)
{
    Events events = {"checkIsHttps(" + url + ")",
                     "I DoTransfer: Doing a HTTPS request, configuring SSL stack",
                     "setHalvordPormelSSLContext()"};
    events.insert(events.end(), options.begin(), options.end());
    for (const char* event :
         {"init_ssl_lock()", "D DoTransfer: SSL lock", "D ~ScopedAction: Executing action...",
          Unlock.c_str(), "deinit_ssl_lock()"}) {
        events.emplace_back(event);
    }
    return events;
}

const Events UnlockAtTheEnd = {"D ~ScopedAction: Executing action...", Unlock, "deinit_ssl_lock()"};

class QXCurlEasyHandlerTest : public testing::Test
{
protected:
    QXCurlEasyHandlerTest()
    {
        wrapper.names[&detail] = "detail";
        Name(&QXCurlEasyHandler::s_ReadBodyCallback, "s_ReadBodyCallback");
        Name(&QXCurlEasyHandler::s_WriteHeaderCallback, "s_WriteHeaderCallback");
        Name(&QXCurlEasyHandler::s_WriteBodyCallback, "s_WriteBodyCallback");
        log.OnLine([this](const LogLine& line) { wrapper.events.push_back(line.Summary()); });
        detail.url = "http://host/";
    }

    // Performs the request that detail describes.
    ITransferHandler::Result Transfer() { return QXCurlEasyHandler().DoTransfer(detail); }

    void ExpectSuccess()
    {
        const ITransferHandler::Result result = Transfer();
        EXPECT_THAT(wrapper.events, ElementsAreArray(expected.All()));
        EXPECT_TRUE(result.success);
        EXPECT_THAT(result.httpCode, Pointee(200));
    }

    void ExpectFailure()
    {
        const ITransferHandler::Result result = Transfer();
        EXPECT_THAT(wrapper.events, ElementsAreArray(expected.All()));
        EXPECT_FALSE(result.success);
        EXPECT_THAT(result.httpCode, IsNull());
    }

    CaughtLog log;
    RecordingQXCurl wrapper;
    ITransferHandler::TransferDetail detail;
    Course expected;

private:
    void Name(RecordingQXCurl::Callback callback, const std::string& name)
    {
        wrapper.names[reinterpret_cast<const void*>(callback)] = name;
    }
};

}  // namespace

TEST_F(QXCurlEasyHandlerTest, APlainDownloadIsTheseCallsAndLinesInThisOrder)
{
    Bytes header;
    Bytes body;
    detail.method = HttpMethod::EhttpGet;
    detail.headerBuffer = &header;
    detail.dataBuffer = &body;
    const ITransferHandler::Result result = Transfer();
    EXPECT_TRUE(result.success);
    const Events all = {
        "D DoTransfer:  ",
        "QXCurlEasy()",
        "Initialize()",
        "checkIsHttps(http://host/)",
        "D DoTransfer: Setting final URL to http://host/",
        "setOption(50, string http://host/)",
        "setOption(17, long 1)",
        "I DoTransfer: EhttpGet",
        "setOption(18, int 2)",
        "I DoTransfer: HTTP version 1.1",
        "setOption(80, callback s_WriteHeaderCallback)",
        "setOption(88, pointer detail)",
        "I DoTransfer: Doing a header request",
        "setOption(78, callback s_WriteBodyCallback)",
        "setOption(86, pointer detail)",
        "I DoTransfer: Doing a body request",
        "I DoTransfer: Request body size is: 0",
        "setOption(75, list Content-Length:0)",
        "setOption(30, long 30)",
        "setTimeout(0, 10)",
        "setOption(20, long 1)",
        "setOption(21, long 1)",
        "setOption(31, long 100)",
        "setOption(32, long 30)",
        "setOption(27, long 15728640)",
        "setOption(3, long 0)",
        "send()",
        "getInfo(8, 0)",
        "I DoTransfer: QXCurl send was successfull",
        "D ~ScopedAction: Executing action...",
        "D ~ScopedAction: Executing action...",
        "D operator(): Cleaning up QXCurl",
        "reset()",
        "~QXCurlEasy()",
    };
    EXPECT_THAT(wrapper.events, ElementsAreArray(all));
}

const std::string MakersUrl = "https://maker/res?[a=1][b=]";
const Events UploadToTheMakersServer = {
    "D DoTransfer:  ",
    "QXCurlEasy()",
    "Initialize()",
    "makeQueryString(, a, 1)",
    "makeQueryString([a=1], b, )",
    "makeUri(res, [a=1][b=])",
    "I DoTransfer: Connecting to a Halvord server, with a URL: " + MakersUrl +
        " resource: res queryStr: [a=1][b=]",
    "setVistrelClient(dorix-cloud)",
    "setVistrelHeader(1)",
    "checkIsHttps(" + MakersUrl + ")",
    "I DoTransfer: Doing a HTTPS request, configuring SSL stack",
    "setHalvordPormelSSLContext()",
    SelfSignedWarning,
    "setOption(39, long 0)",
    "init_ssl_lock()",
    "D DoTransfer: SSL lock",
    "D ~ScopedAction: Executing action...",
    "D operator(): Unlocking SSL lock",
    "deinit_ssl_lock()",
    "D DoTransfer: Setting final URL to " + MakersUrl,
    "setOption(50, string " + MakersUrl + ")",
    "setOption(16, long 1)",
    "setOption(79, callback s_ReadBodyCallback)",
    "setOption(87, pointer detail)",
    "setOption(43, long long 3)",
    "I DoTransfer: EhttpPost",
    "setOption(18, int 3)",
    "I DoTransfer: HTTP version 2.0",
    "setOption(78, callback s_WriteBodyCallback)",
    "setOption(86, pointer detail)",
    "I DoTransfer: Doing a body request",
    "I DoTransfer: Request body size is: 3",
    "I DoTransfer: curlHeader: X-A: 1",
    "I DoTransfer: curlHeader: X-B: ",
    "setOption(75, list Content-Length:3|X-A: 1|X-B: )",
    "setOption(30, long 30)",
    "setTimeout(0, 10)",
    "setOption(20, long 1)",
    "setOption(21, long 1)",
    "setOption(31, long 100)",
    "setOption(32, long 30)",
    "setOption(27, long 15728640)",
    "I DoTransfer: Enabling verbose mode",
    "setOption(1, long 1)",
    "setOption(3, long 0)",
    "send()",
    "getInfo(8, 0)",
    "I DoTransfer: QXCurl send was successfull",
    "D ~ScopedAction: Executing action...",
    "D operator(): Unlocking SSL lock",
    "deinit_ssl_lock()",
    "D ~ScopedAction: Executing action...",
    "D operator(): Cleaning up QXCurl",
    "reset()",
    "~QXCurlEasy()",
};

TEST_F(QXCurlEasyHandlerTest, AnUploadToTheMakersServerIsTheseCallsAndLinesInThisOrder)
{
    wrapper.scheme = "https";
    detail.halvordConfig = HalvordConfig{"res", {{"a", "1"}, {"b", ""}}};
    detail.method = HttpMethod::EhttpPost;
    detail.httpVersion = HttpVersion::Eversion20;
    detail.requestBody = "abc";
    detail.headers = {{"X-A", "1"}, {"X-B", ""}};
    detail.allowSelfSignedCertificates = true;
    detail.verbose = true;
    detail.dataCallback = [](std::unique_ptr<Bytes>, void*) { return true; };
    const ITransferHandler::Result result = Transfer();
    EXPECT_TRUE(result.success);
    EXPECT_THAT(wrapper.events, ElementsAreArray(UploadToTheMakersServer));
}

TEST_F(QXCurlEasyHandlerTest, TheDefaultMethodSetsNothing)
{
    detail.method = HttpMethod::Default;
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, AnUnknownMethodSetsNothingAndLogsNothing)
{
    detail.method = static_cast<HttpMethod>(5);
    expected.method = {};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, AGetSetsItsOption)
{
    detail.method = HttpMethod::EhttpGet;
    expected.method = {"setOption(17, long 1)", "I DoTransfer: EhttpGet"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, AHeadEmptiesTheBodyBufferAndRegistersNoBodySink)
{
    Bytes body = {1, 2, 3};
    detail.method = HttpMethod::EhttpHead;
    detail.dataBuffer = &body;
    expected.method = {"setOption(24, int 1)", "I DoTransfer: EhttpHead"};
    expected.body = {"setOption(24, int 1)"};
    ExpectSuccess();
    EXPECT_THAT(body, IsEmpty());
}

TEST_F(QXCurlEasyHandlerTest, APostRegistersItsSourceAndDeclaresItsSize)
{
    detail.method = HttpMethod::EhttpPost;
    detail.requestBody = std::string("a\0b", 3);
    expected.method = {"setOption(16, long 1)", "setOption(79, callback s_ReadBodyCallback)",
                       "setOption(87, pointer detail)", "setOption(43, long long 3)",
                       "I DoTransfer: EhttpPost"};
    expected.lines = {"I DoTransfer: Request body size is: 3",
                      "setOption(75, list Content-Length:3)"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, TheDeclaredSizeIsThatOfTheWholeBodyWhateverWasHandedOver)
{
    detail.method = HttpMethod::EhttpPost;
    detail.requestBody = "abc";
    detail.bodyOffset = 1;
    Transfer();
    EXPECT_THAT(wrapper.events, Contains("setOption(43, long long 3)"));
    EXPECT_THAT(wrapper.events, Contains("setOption(75, list Content-Length:3)"));
    EXPECT_EQ(detail.bodyOffset, 1U);
}

TEST_F(QXCurlEasyHandlerTest, APostOfNothingRegistersItsSourceAndDeclaresNoBytes)
{
    detail.method = HttpMethod::EhttpPost;
    expected.method = {"setOption(16, long 1)", "setOption(79, callback s_ReadBodyCallback)",
                       "setOption(87, pointer detail)", "setOption(43, long long 0)",
                       "I DoTransfer: EhttpPost"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, APutTurnsBothItsSwitches)
{
    detail.method = HttpMethod::EhttpPut;
    detail.requestBody.assign(1234567, 'x');
    expected.method = {"setOption(26, int 1)",
                       "setOption(15, int 1)",
                       "setOption(79, callback s_ReadBodyCallback)",
                       "setOption(87, pointer detail)",
                       "setOption(43, long long 1234567)",
                       "I DoTransfer: EhttpPut"};
    expected.lines = {"I DoTransfer: Request body size is: 1234567",
                      "setOption(75, list Content-Length:1234567)"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, ABodyIsCountedInTheHeaderWhateverTheMethod)
{
    detail.method = HttpMethod::EhttpGet;
    detail.requestBody = "ab";
    expected.method = {"setOption(17, long 1)", "I DoTransfer: EhttpGet"};
    expected.lines = {"I DoTransfer: Request body size is: 2",
                      "setOption(75, list Content-Length:2)"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, AnUnspecifiedVersionSetsNothing)
{
    detail.httpVersion = HttpVersion::EversionUnspecified;
    expected.version = {"I DoTransfer: Version unspecified"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, Version10IsNumberOne)
{
    detail.httpVersion = HttpVersion::Eversion10;
    expected.version = {"setOption(18, int 1)", "I DoTransfer: HTTP version 1.0"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, Version11IsNumberTwo)
{
    detail.httpVersion = HttpVersion::Eversion11;
    expected.version = {"setOption(18, int 2)", "I DoTransfer: HTTP version 1.1"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, Version20IsNumberThree)
{
    detail.httpVersion = HttpVersion::Eversion20;
    expected.version = {"setOption(18, int 3)", "I DoTransfer: HTTP version 2.0"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, AnUnknownVersionSetsNothingAndLogsNothing)
{
    detail.httpVersion = static_cast<HttpVersion>(4);
    expected.version = {};
    ExpectSuccess();
}

class QXCurlEasyHandlerDeliveryTest : public QXCurlEasyHandlerTest
{
protected:
    void ExpectHeaderSink()
    {
        expected.header = {"setOption(80, callback s_WriteHeaderCallback)",
                           "setOption(88, pointer detail)", "I DoTransfer: Doing a header request"};
    }

    void ExpectBodySink()
    {
        expected.body = {"setOption(78, callback s_WriteBodyCallback)",
                         "setOption(86, pointer detail)", "I DoTransfer: Doing a body request"};
    }

    const ITransferHandler::ChunkCallback accept = [](std::unique_ptr<Bytes>, void*) {
        return true;
    };
};

TEST_F(QXCurlEasyHandlerDeliveryTest, WithoutBuffersAndCallbacksNothingIsDelivered)
{
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerDeliveryTest, AHeaderBufferIsEmptiedAndAsksForTheHeader)
{
    Bytes header = {1, 2, 3};
    detail.headerBuffer = &header;
    ExpectHeaderSink();
    ExpectSuccess();
    EXPECT_THAT(header, IsEmpty());
}

TEST_F(QXCurlEasyHandlerDeliveryTest, AHeaderCallbackAsksForTheHeader)
{
    detail.headerCallback = accept;
    ExpectHeaderSink();
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerDeliveryTest, ABodyBufferIsEmptiedAndAsksForTheBody)
{
    Bytes body = {1, 2, 3};
    detail.dataBuffer = &body;
    ExpectBodySink();
    ExpectSuccess();
    EXPECT_THAT(body, IsEmpty());
}

TEST_F(QXCurlEasyHandlerDeliveryTest, ABodyCallbackAsksForTheBody)
{
    detail.dataCallback = accept;
    ExpectBodySink();
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerDeliveryTest, WhatTheWrapperReceivesReachesTheBuffers)
{
    Bytes header;
    Bytes body;
    detail.headerBuffer = &header;
    detail.dataBuffer = &body;
    wrapper.onSend = [this] {
        std::string line = "A: b\r\n";
        std::string bytes("\xff\0", 2);
        return wrapper.Call(80, 88, line) == 6 && wrapper.Call(78, 86, bytes) == 2;
    };
    EXPECT_TRUE(Transfer().success);
    EXPECT_EQ(std::string(header.begin(), header.end()), "A: b\r\n");
    EXPECT_THAT(body, ElementsAre(0xff, 0));
}

TEST_F(QXCurlEasyHandlerDeliveryTest, WhatTheWrapperAsksForComesFromTheRequestBody)
{
    detail.method = HttpMethod::EhttpPut;
    detail.requestBody = "abc";
    std::string uploaded(8, '.');
    wrapper.onSend = [&] { return wrapper.Call(79, 87, uploaded) == 3; };
    EXPECT_TRUE(Transfer().success);
    EXPECT_EQ(uploaded, "abc.....");
}

TEST_F(QXCurlEasyHandlerDeliveryTest, AClientsExceptionPassesThroughAfterTheCleanUp)
{
    detail.url = "https://host/";
    detail.dataCallback = [](std::unique_ptr<Bytes>, void*) -> bool {
        throw std::runtime_error("client");
    };
    wrapper.onSend = [this] {
        std::string bytes = "x";
        wrapper.events.clear();
        return wrapper.Call(78, 86, bytes) == 1;
    };
    EXPECT_THROW(Transfer(), std::runtime_error);
    Events end = UnlockAtTheEnd;
    end.insert(end.end(), expected.cleanup.begin(), expected.cleanup.end());
    EXPECT_THAT(wrapper.events, ElementsAreArray(end));
}

TEST_F(QXCurlEasyHandlerTest, HttpsTakesTheSslLockOnceAndReleasesItTwice)
{
    detail.url = "https://host/";
    expected.security = HttpsWith("https://host/", {});
    expected.url = {"D DoTransfer: Setting final URL to https://host/",
                    "setOption(50, string https://host/)"};
    expected.guard = UnlockAtTheEnd;
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, SelfSignedCertificatesAreAllowedWithAWarning)
{
    detail.url = "https://host/";
    detail.allowSelfSignedCertificates = true;
    expected.security = HttpsWith("https://host/", {SelfSignedWarning, "setOption(39, long 0)"});
    expected.url = {"D DoTransfer: Setting final URL to https://host/",
                    "setOption(50, string https://host/)"};
    expected.guard = UnlockAtTheEnd;
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, SelfSignedCertificatesAreOfNoAccountToHttp)
{
    detail.allowSelfSignedCertificates = true;
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, WithoutAnSslContextTheRequestFailsBeforeTheLock)
{
    detail.url = "https://host/";
    wrapper.acceptSslContext = false;
    expected.security = {
        "checkIsHttps(https://host/)", "I DoTransfer: Doing a HTTPS request, configuring SSL stack",
        "setHalvordPormelSSLContext()", "E DoTransfer: Failed to set the Halvord SSL context"};
    expected.EndBeforeUrl();
    ExpectFailure();
}

// Each way to ask, with what it adds to the course of a request.
const std::pair<HttpMethod, Events> Methods[] = {
    {HttpMethod::Default, {"I DoTransfer: Default"}},
    {HttpMethod::EhttpGet, {"setOption(17, long 1)", "I DoTransfer: EhttpGet"}},
    {HttpMethod::EhttpHead, {"setOption(24, int 1)", "I DoTransfer: EhttpHead"}},
    {HttpMethod::EhttpPost,
     {"setOption(16, long 1)", "setOption(79, callback s_ReadBodyCallback)",
      "setOption(87, pointer detail)", "setOption(43, long long 2)", "I DoTransfer: EhttpPost"}},
    {HttpMethod::EhttpPut,
     {"setOption(26, int 1)", "setOption(15, int 1)", "setOption(79, callback s_ReadBodyCallback)",
      "setOption(87, pointer detail)", "setOption(43, long long 2)", "I DoTransfer: EhttpPut"}},
    {static_cast<HttpMethod>(5), {}},
};
const std::pair<HttpVersion, Events> Versions[] = {
    {HttpVersion::EversionUnspecified, {"I DoTransfer: Version unspecified"}},
    {HttpVersion::Eversion10, {"setOption(18, int 1)", "I DoTransfer: HTTP version 1.0"}},
    {HttpVersion::Eversion11, {"setOption(18, int 2)", "I DoTransfer: HTTP version 1.1"}},
    {HttpVersion::Eversion20, {"setOption(18, int 3)", "I DoTransfer: HTTP version 2.0"}},
    {static_cast<HttpVersion>(4), {}},
};

// Expects the sum of the choices that are made for a request.
class QXCurlEasyHandlerCombinations : public QXCurlEasyHandlerDeliveryTest
{
protected:
    QXCurlEasyHandlerCombinations()
    {
        detail.requestBody = "ab";
        expected.lines = {"I DoTransfer: Request body size is: 2",
                          "setOption(75, list Content-Length:2)"};
    }

    // The server is the maker's or "host".
    void Choose(bool isHttps, bool isMakers)
    {
        wrapper.scheme = isHttps ? "https" : "http";
        const std::string url = wrapper.scheme + (isMakers ? "://maker/res?[k=v]" : "://host/");
        const HalvordConfig makers{"res", {{"k", "v"}}};
        detail.url = isMakers ? "https://elsewhere/" : url;
        detail.halvordConfig = boost::make_optional(isMakers, makers);
        const Events connecting = {"makeQueryString(, k, v)", "makeUri(res, [k=v])",
                                   "I DoTransfer: Connecting to a Halvord server, with a URL: " +
                                       url + " resource: res queryStr: [k=v]",
                                   "setVistrelClient(dorix-cloud)", "setVistrelHeader(1)"};
        expected.maker = isMakers ? connecting : Events();
        expected.security = isHttps ? HttpsWith(url, {}) : Events{"checkIsHttps(" + url + ")"};
        expected.guard = isHttps ? UnlockAtTheEnd : Course().guard;
        expected.url = {"D DoTransfer: Setting final URL to " + url,
                        "setOption(50, string " + url + ")"};
    }

    void ChooseDelivery(bool wantHeader, bool wantBody)
    {
        detail.headerCallback = wantHeader ? accept : nullptr;
        detail.dataCallback = wantBody ? accept : nullptr;
        expected.header.clear();
        expected.body = Course().body;
        if (wantHeader) {
            ExpectHeaderSink();
        }
        if (wantBody && detail.method != HttpMethod::EhttpHead) {
            ExpectBodySink();
        }
    }

    void Expect(bool isSent)
    {
        wrapper.onSend = [isSent] { return isSent; };
        wrapper.events.clear();
        expected.sending = isSent ? Course().sending
                                  : Events{"setOption(3, long 0)", "send()", "getLastError()",
                                           "E DoTransfer: Failed to send using QXCurl "};
        isSent ? ExpectSuccess() : ExpectFailure();
    }

    // For every server, delivery and outcome.
    void ExpectAll()
    {
        for (unsigned int bits = 0; bits < 32; ++bits) {
            SCOPED_TRACE(bits);
            Choose((bits & 1) != 0, (bits & 2) != 0);
            ChooseDelivery((bits & 4) != 0, (bits & 8) != 0);
            Expect((bits & 16) != 0);
        }
    }
};

TEST_F(QXCurlEasyHandlerCombinations, OfAllChoicesAreTheSumOfWhatEachAdds)
{
    for (const auto& [method, methodEvents] : Methods) {
        for (const auto& [version, versionEvents] : Versions) {
            SCOPED_TRACE(testing::PrintToString(methodEvents) +
                         testing::PrintToString(versionEvents));
            detail.method = method;
            detail.httpVersion = version;
            expected.method = methodEvents;
            expected.version = versionEvents;
            ExpectAll();
        }
    }
}

TEST_F(QXCurlEasyHandlerTest, AResourceOfTheMakersTakesThePlaceOfTheUrl)
{
    detail.halvordConfig = HalvordConfig{"res", {}};
    expected.maker = {"makeUri(res, )",
                      "I DoTransfer: Connecting to a Halvord server, with a URL: http://maker/res? "
                      "resource: res queryStr: ",
                      "setVistrelClient(dorix-cloud)", "setVistrelHeader(1)"};
    expected.security = {"checkIsHttps(http://maker/res?)"};
    expected.url = {"D DoTransfer: Setting final URL to http://maker/res?",
                    "setOption(50, string http://maker/res?)"};
    ExpectSuccess();
}

class QXCurlEasyHandlerMakerTest : public QXCurlEasyHandlerTest
{
protected:
    QXCurlEasyHandlerMakerTest()
    {
        detail.halvordConfig = HalvordConfig{"res", {{"k", "v"}}};
        detail.headerBuffer = &header;
        detail.dataBuffer = &body;
        expected.maker = {"makeQueryString(, k, v)", "makeUri(res, [k=v])",
                          "I DoTransfer: Connecting to a Halvord server, with a URL: "
                          "http://maker/res?[k=v] resource: res queryStr: [k=v]",
                          "setVistrelClient(dorix-cloud)"};
        expected.EndBeforeSecurity();
    }

    void ExpectEmptyBuffers()
    {
        EXPECT_THAT(header, IsEmpty());
        EXPECT_THAT(body, IsEmpty());
    }

    Bytes header = {1};
    Bytes body = {2};
};

TEST_F(QXCurlEasyHandlerMakerTest, ARefusedClientFailsTheRequestWithBuffersEmptied)
{
    wrapper.acceptClient = false;
    expected.maker.emplace_back("E DoTransfer: Failed to set VistrelClient");
    ExpectFailure();
    ExpectEmptyBuffers();
}

TEST_F(QXCurlEasyHandlerMakerTest, ARefusedClientHeaderFailsTheRequestWithBuffersEmptied)
{
    wrapper.acceptHeader = false;
    expected.maker.emplace_back("setVistrelHeader(1)");
    expected.maker.emplace_back("E DoTransfer: Failed to set VistrelHeader");
    ExpectFailure();
    ExpectEmptyBuffers();
}

TEST_F(QXCurlEasyHandlerMakerTest, WithoutAnSslContextTheRequestFailsWithBuffersEmptied)
{
    wrapper.uri = "https://maker/";
    wrapper.acceptSslContext = false;
    const std::string connecting =
        "I DoTransfer: Connecting to a Halvord server, with a URL: https://maker/ "
        "resource: res queryStr: [k=v]";
    expected.maker = {"makeQueryString(, k, v)", "makeUri(res, [k=v])", connecting,
                      "setVistrelClient(dorix-cloud)", "setVistrelHeader(1)"};
    expected.security = {"checkIsHttps(https://maker/)",
                         "I DoTransfer: Doing a HTTPS request, configuring SSL stack",
                         "setHalvordPormelSSLContext()",
                         "E DoTransfer: Failed to set the Halvord SSL context"};
    expected.guard = Course().guard;
    ExpectFailure();
    ExpectEmptyBuffers();
}

TEST_F(QXCurlEasyHandlerTest, AnEmptyUrlFailsTheRequest)
{
    detail.url.clear();
    expected.security = {"checkIsHttps()"};
    expected.EndBeforeUrl();
    expected.url = {"E DoTransfer: URL is empty: "};
    ExpectFailure();
}

TEST_F(QXCurlEasyHandlerTest, AnEmptyUrlThatCountsAsHttpsStillReleasesTheLockAtTheEnd)
{
    detail.url.clear();
    wrapper.isHttps = true;
    expected.EndBeforeUrl();
    expected.security = HttpsWith("", {});
    expected.url = {"E DoTransfer: URL is empty: "};
    expected.guard = UnlockAtTheEnd;
    ExpectFailure();
}

TEST_F(QXCurlEasyHandlerTest, AResourceWithoutAUrlFailsTheRequest)
{
    detail.halvordConfig = HalvordConfig{"res", {}};
    wrapper.uri = "";
    expected.EndBeforeUrl();
    expected.maker = {"makeUri(res, )",
                      "I DoTransfer: Connecting to a Halvord server, with a URL:  resource: res "
                      "queryStr: ",
                      "setVistrelClient(dorix-cloud)", "setVistrelHeader(1)"};
    expected.security = {"checkIsHttps()"};
    expected.url = {"E DoTransfer: URL is empty: "};
    ExpectFailure();
}

TEST_F(QXCurlEasyHandlerTest, AFailedSendIsLoggedWithTheWrappersReason)
{
    wrapper.onSend = [] { return false; };
    wrapper.lastError = "no 100% luck";
    expected.sending = {"setOption(3, long 0)", "send()", "getLastError()",
                        "E DoTransfer: Failed to send using QXCurl no 100% luck"};
    ExpectFailure();
}

TEST_F(QXCurlEasyHandlerTest, AnErrorStatusIsASuccessThatTellsTheStatus)
{
    wrapper.responseCode = 404;
    detail.failOnError = true;
    const ITransferHandler::Result result = Transfer();
    EXPECT_TRUE(result.success);
    EXPECT_THAT(result.httpCode, Pointee(404));
}

TEST_F(QXCurlEasyHandlerTest, HeadersFollowTheLengthInTheirOrder)
{
    detail.headers = {{"B", "2"}, {"A", "1: 1"}, {"", ""}};
    expected.lines = {"I DoTransfer: Request body size is: 0", "I DoTransfer: curlHeader: B: 2",
                      "I DoTransfer: curlHeader: A: 1: 1", "I DoTransfer: curlHeader: : ",
                      "setOption(75, list Content-Length:0|B: 2|A: 1: 1|: )"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, TheWrappersValuesAreForwardedUnderTheirNumbers)
{
    detail.timeoutArg1 = -1;
    detail.timeoutArg2 = 2147483647;
    detail.wrapperOption20 = -201;
    detail.wrapperOption21 = 211;
    detail.wrapperOption27 = 271;
    detail.wrapperOption30 = 301;
    detail.wrapperOption31 = 311;
    detail.wrapperOption32 = -2147483647;
    expected.forwarded = {"setOption(30, long 301)",  "setTimeout(-1, 2147483647)",
                          "setOption(20, long -201)", "setOption(21, long 211)",
                          "setOption(31, long 311)",  "setOption(32, long -2147483647)",
                          "setOption(27, long 271)"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, Option21IsLeftOutWhenOption20Is0)
{
    detail.wrapperOption20 = 0;
    expected.forwarded = {"setOption(30, long 30)", "setTimeout(0, 10)",
                          "setOption(20, long 0)",  "setOption(31, long 100)",
                          "setOption(32, long 30)", "setOption(27, long 15728640)"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, VerboseIsSwitchedOn)
{
    detail.verbose = true;
    expected.verbose = {"I DoTransfer: Enabling verbose mode", "setOption(1, long 1)"};
    ExpectSuccess();
}

TEST_F(QXCurlEasyHandlerTest, AHandlerServesOneRequestAfterAnother)
{
    const QXCurlEasyHandler handler;
    handler.DoTransfer(detail);
    handler.DoTransfer(detail);
    const Events once = expected.All();
    Events twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_THAT(wrapper.events, ElementsAreArray(twice));
}

TEST_F(QXCurlEasyHandlerTest, TheFactoryMakesHandlersWithoutTouchingTheWrapper)
{
    QXCurlEasyHandlerFactory factory;
    const std::unique_ptr<ITransferHandler> handler = factory.Create();
    EXPECT_THAT(wrapper.events, IsEmpty());
    Configuration configuration;
    configuration.url = "http://host/";
    EXPECT_TRUE(handler->GetTransfer(configuration, boost::none, boost::none).success);
    EXPECT_EQ(wrapper.events.front(), "D GetTransfer:  ");
}

// Tools search the log by file and function, so these stay when the code is divided differently.
TEST_F(QXCurlEasyHandlerTest, EachLineNamesItsFileAndFunction)
{
    detail.url = "https://host/";
    detail.halvordConfig = HalvordConfig{"r", {}};
    wrapper.scheme = "https";
    detail.allowSelfSignedCertificates = true;
    detail.headers = {{"A", "1"}};
    detail.verbose = true;
    detail.headerCallback = [](auto&&...) { return true; };
    detail.dataCallback = detail.headerCallback;
    Transfer();
    Events lines;
    for (const LogLine& line : log.Lines()) {
        EXPECT_GT(line.line, 0);
        lines.push_back(line.file + ' ' + line.Summary());
    }
    const std::string url = "https://maker/r?";
    const std::string action = "Utils.h D ~ScopedAction: Executing action...";
    const Events byDoTransfer = {"D DoTransfer:  ",
                                 "I DoTransfer: Connecting to a Halvord server, with a URL: " +
                                     url + " resource: r queryStr: ",
                                 "I DoTransfer: Doing a HTTPS request, configuring SSL stack",
                                 SelfSignedWarning,
                                 "D DoTransfer: SSL lock",
                                 Unlock,
                                 "D DoTransfer: Setting final URL to " + url,
                                 "I DoTransfer: Default",
                                 "I DoTransfer: HTTP version 1.1",
                                 "I DoTransfer: Doing a header request",
                                 "I DoTransfer: Doing a body request",
                                 "I DoTransfer: Request body size is: 0",
                                 "I DoTransfer: curlHeader: A: 1",
                                 "I DoTransfer: Enabling verbose mode",
                                 "I DoTransfer: QXCurl send was successfull",
                                 Unlock,
                                 "D operator(): Cleaning up QXCurl"};
    Events expectedLines;
    for (const std::string& line : byDoTransfer) {
        if (line.rfind("D operator()", 0) == 0) {
            expectedLines.push_back(action);
        }
        expectedLines.push_back("QXCurlEasyHandler.cpp " + line);
    }
    EXPECT_THAT(lines, ElementsAreArray(expectedLines));
}
