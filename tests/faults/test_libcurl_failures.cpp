// Every function of libcurl that can fail does, once in each place where a request calls it. What
// is refused is left out of the request; with nobody to send it, it fails.

#include <CurlEasyHandlerFactory.h>
#include <QXCurlEasyHandlerFactory.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "FailingCurl.h"
#include "ServerTest.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Pair;
using testing::StartsWith;
using VORTAN_MW::ITransferHandler;
using HttpMethod = ITransferHandler::Configuration::HttpMethod;

namespace {

class LibcurlFailures : public ServerTest<OddServer>, public testing::WithParamInterface<bool>
{
protected:
    // Plain or segmented, as the test's parameter says.
    template <typename Factory>
    static Scenario Request(HttpMethod method, const std::string& path)
    {
        Scenario scenario{{}, &Make<Factory>, Url("/bytes/" + std::to_string(BodyLength))};
        scenario.pattern.url = Url(path);
        scenario.pattern.method = method;
        scenario.pattern.headers = {{"A", "1"}};
        scenario.pattern.segmented = GetParam();
        return scenario;
    }

    template <typename Factory>
    static Scenario Upload(HttpMethod method, const std::string& path)
    {
        Scenario scenario = Request<Factory>(method, path);
        scenario.pattern.requestBody = "uploaded";
        return scenario;
    }
};

INSTANTIATE_TEST_SUITE_P(Each, LibcurlFailures, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& segmented) {
                             return segmented.param ? "Segmented" : "Plain";
                         });

using Libcurl = VORTAN_MW::CurlEasyHandlerFactory;
using Wrapper = VORTAN_MW::QXCurlEasyHandlerFactory;

// What ended in another way than the first, which is how the request ends when nothing fails.
Endings WithConsequence(Endings endings)
{
    const std::string usual = endings.front().second;
    endings.erase(std::remove_if(endings.begin() + 1, endings.end(),
                                 [&](const auto& each) { return each.second == usual; }),
                  endings.end());
    return endings;
}

// Only a plain transfer, which has a buffer to make room in, asks how long the body will be. That
// it is not told has no consequence.
Endings WithoutAnnouncement(Endings endings, bool segmented)
{
    const Endings::value_type announcement("easy_getinfo CONTENT_LENGTH_DOWNLOAD_T", "success 200");
    EXPECT_THAT(endings, testing::Contains(announcement).Times(segmented ? 0 : 1));
    endings.erase(std::remove(endings.begin(), endings.end(), announcement), endings.end());
    return endings;
}

}  // namespace

TEST_P(LibcurlFailures, OfADownloadEachIsAnswered)
{
    EXPECT_THAT(
        WithoutAnnouncement(FailEach(Request<Libcurl>(HttpMethod::EhttpGet, "/echo"), failingCurl),
                            GetParam()),
        ElementsAre(
            Pair("nothing", "success 200"),
            Pair("global_init", "success 200"),  // curl_easy_init makes up for it
            Pair("easy_init", "failure"), Pair("easy_setopt URL", "failure 0"),
            Pair("easy_setopt HTTPGET", "success 200"),
            Pair("easy_setopt HEADERFUNCTION", "success 200"),
            Pair("easy_setopt HEADERDATA", "success 200"),
            Pair("easy_setopt WRITEFUNCTION", "success 200"),
            Pair("easy_setopt WRITEDATA", "success 200"),
            Pair("easy_setopt USERAGENT", "success 200 -User-Agent: libcurl-agent/1.0"),
            Pair("easy_setopt FAILONERROR", "success 200"),
            Pair("easy_setopt FOLLOWLOCATION", "success 200"),
            Pair("easy_setopt ACCEPT_ENCODING",
                 MatchesRegex("success 200 -Accept-Encoding: [a-z, ]*")),
            Pair("slist_append Cache-control: no-cache", "success 200 -Cache-control: no-cache"),
            Pair("slist_append A: 1", "success 200 -A: 1"),
            Pair("easy_setopt HTTPHEADER", "success 200 -A: 1 -Cache-control: no-cache"),
            Pair("easy_perform", "failure 0"), Pair("easy_getinfo RESPONSE_CODE", "success 0")));
}

TEST_P(LibcurlFailures, OfAPutEachIsAnswered)
{
    EXPECT_THAT(
        WithoutAnnouncement(FailEach(Upload<Libcurl>(HttpMethod::EhttpPut, "/mirror"), failingCurl),
                            GetParam()),
        ElementsAre(
            Pair("nothing", "success 200"), Pair("global_init", "success 200"),
            Pair("easy_init", "failure"), Pair("easy_setopt URL", "failure 0"),
            Pair("easy_setopt UPLOAD", "success 200"), Pair("easy_setopt PUT", "success 200"),
            Pair("easy_setopt READFUNCTION", "success 200"),
            Pair("easy_setopt READDATA", "success 200"),
            Pair("easy_setopt INFILESIZE_LARGE",
                 "success 200 -X-Seen-Content-Length: 8 -X-Seen-Transfer-Encoding: "
                 "- +X-Seen-Content-Length: - +X-Seen-Transfer-Encoding: chunked"),
            Pair("easy_setopt HEADERFUNCTION", "success 200"),
            Pair("easy_setopt HEADERDATA", "success 200"),
            Pair("easy_setopt WRITEFUNCTION", "success 200"),
            Pair("easy_setopt WRITEDATA", "success 200"),
            Pair("easy_setopt USERAGENT", "success 200"),
            Pair("easy_setopt FAILONERROR", "success 200"),
            Pair("easy_setopt FOLLOWLOCATION", "success 200"),
            Pair("easy_setopt ACCEPT_ENCODING", "success 200"),
            Pair("slist_append Cache-control: no-cache", "success 200"),
            Pair("slist_append A: 1", "success 200"), Pair("easy_setopt HTTPHEADER", "success 200"),
            Pair("easy_perform", "failure 0"), Pair("easy_getinfo RESPONSE_CODE", "success 0")));
}

TEST_P(LibcurlFailures, AHeadStaysAHeadWhicheverOptionIsRefused)
{
    EXPECT_THAT(
        WithConsequence(FailEach(Request<Libcurl>(HttpMethod::EhttpHead, "/echo"), failingCurl)),
        ElementsAre(Pair("nothing", "success 200"), Pair("easy_init", "failure"),
                    Pair("easy_setopt URL", "failure 0"), Pair("easy_perform", "failure 0"),
                    Pair("easy_getinfo RESPONSE_CODE", "success 0")));
}

TEST_P(LibcurlFailures, APostIsAGetIfThatIsRefused)
{
    EXPECT_THAT(
        WithConsequence(FailEach(Upload<Libcurl>(HttpMethod::EhttpPost, "/mirror"), failingCurl)),
        ElementsAre(Pair("nothing", "success 200"), Pair("easy_init", "failure"),
                    Pair("easy_setopt URL", "failure 0"),
                    Pair("easy_setopt POST", HasSubstr("+X-Seen-Request: GET /mirror HTTP/1.1")),
                    Pair("easy_perform", "failure 0"),
                    Pair("easy_getinfo RESPONSE_CODE", "success 0")));
}

TEST_P(LibcurlFailures, AnErrorPageIsABodyIfFailingIsRefused)
{
    EXPECT_THAT(WithConsequence(
                    FailEach(Request<Libcurl>(HttpMethod::EhttpGet, "/status/404"), failingCurl)),
                ElementsAre(Pair("nothing", "failure 404"), Pair("easy_init", "failure"),
                            Pair("easy_setopt URL", "failure 0"),
                            Pair("easy_setopt FAILONERROR",
                                 AllOf(StartsWith("success 404"), EndsWith("+status 404"))),
                            Pair("easy_perform", "failure 0"),
                            Pair("easy_getinfo RESPONSE_CODE", "failure 0")));
}

TEST_P(LibcurlFailures, ARedirectionIsTheResponseIfFollowingIsRefused)
{
    // A HEAD, so that no echoed request tells of the other options.
    EXPECT_THAT(WithConsequence(FailEach(Request<Libcurl>(HttpMethod::EhttpHead, "/redirect/302/1"),
                                         failingCurl)),
                ElementsAre(Pair("nothing", "success 200"), Pair("easy_init", "failure"),
                            Pair("easy_setopt URL", "failure 0"),
                            Pair("easy_setopt FOLLOWLOCATION", StartsWith("success 302")),
                            Pair("easy_perform", "failure 0"),
                            Pair("easy_getinfo RESPONSE_CODE", "success 0")));
}

TEST_P(LibcurlFailures, ARedirectedPostIsAGetIfKeepingItIsRefused)
{
    EXPECT_THAT(WithConsequence(FailEach(Upload<Libcurl>(HttpMethod::EhttpPost, "/redirect/302/1"),
                                         failingCurl)),
                // The body has been read already, and libcurl cannot rewind it.
                ElementsAre(Pair("nothing", "failure 302"), Pair("easy_init", "failure"),
                            Pair("easy_setopt URL", "failure 0"),
                            Pair("easy_setopt POST", HasSubstr("+GET /echo HTTP/1.1")),
                            Pair("easy_setopt POSTREDIR", HasSubstr("+GET /echo HTTP/1.1")),
                            Pair("easy_setopt FOLLOWLOCATION",
                                 AllOf(StartsWith("success 302"), EndsWith("+moved"))),
                            Pair("easy_perform", "failure 0"),
                            Pair("easy_getinfo RESPONSE_CODE", "failure 0")));
}

// The wrapper's stand-in has no other answer to a list for which there is no memory than the
// exception, which ends the process.
TEST_P(LibcurlFailures, OfADownloadThroughTheWrapperEachIsAnswered)
{
    EXPECT_THAT(
        FailEach(Request<Wrapper>(HttpMethod::EhttpGet, "/echo"), failingCurl),
        ElementsAre(
            Pair("nothing", "success 200"), Pair("global_init", "failure"),
            Pair("easy_init", "failure"), Pair("slist_append Content-Length:0", "ends the process"),
            Pair("slist_append A: 1", "ends the process"),
            Pair("easy_setopt PROTOCOLS_STR", "success 200"),
            Pair("easy_setopt HTTP_VERSION", "success 200"),
            Pair("easy_setopt VERBOSE", "success 200"), Pair("easy_setopt NOSIGNAL", "success 200"),
            Pair("easy_setopt NOBODY", "success 200"),
            Pair("easy_setopt READFUNCTION", "success 200"),
            Pair("easy_setopt READDATA", "success 200"),
            Pair("easy_setopt HEADERFUNCTION", "success 200"),
            Pair("easy_setopt HEADERDATA", "success 200"),
            Pair("easy_setopt WRITEFUNCTION", "success 200"),
            Pair("easy_setopt WRITEDATA", "success 200"),
            Pair("easy_setopt SSL_VERIFYPEER", "success 200"),
            Pair("easy_setopt TIMEOUT", "success 200"),
            Pair("easy_setopt CONNECTTIMEOUT", "success 200"),
            Pair("easy_setopt HTTPHEADER",
                 "success 200 -A: 1 -Content-Length:0 -X-Seen-Content-Length: 0 "
                 "+X-Seen-Content-Length: -"),
            Pair("easy_setopt ERRORBUFFER", "success 200"), Pair("easy_setopt URL", "failure"),
            Pair("easy_perform", "failure"), Pair("easy_setopt ERRORBUFFER", "success 200"),
            Pair("easy_getinfo RESPONSE_CODE", "success 0")));
}

TEST_P(LibcurlFailures, OfAPutThroughTheWrapperEachIsAnswered)
{
    EXPECT_THAT(
        WithConsequence(FailEach(Upload<Wrapper>(HttpMethod::EhttpPut, "/mirror"), failingCurl)),
        ElementsAre(Pair("nothing", "success 200"), Pair("global_init", "failure"),
                    Pair("easy_init", "failure"),
                    Pair("slist_append Content-Length:8", "ends the process"),
                    Pair("slist_append A: 1", "ends the process"),
                    Pair("easy_setopt INFILESIZE_LARGE",
                         "success 200 -X-Seen-Transfer-Encoding: - "
                         "+X-Seen-Transfer-Encoding: chunked"),
                    Pair("easy_setopt URL", "failure"), Pair("easy_perform", "failure"),
                    Pair("easy_getinfo RESPONSE_CODE", "success 0")));
}
