// Every operation of the maker's curl wrapper library fails, once in each place where a request
// calls it: by its result, which is of account in four places only, or by an exception, which ends
// the process.

#include <QXCurlEasyHandlerFactory.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "FailingQXCurl.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Pair;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;
using VORTAN_MW::ITransferHandler;
using HttpMethod = ITransferHandler::Configuration::HttpMethod;

namespace {

// Plain or segmented, as the test's parameter says.
class WrapperFailures : public testing::TestWithParam<bool>
{
protected:
    // Of a resource on the maker's server, with all that can be asked of the wrapper.
    static Scenario PutToTheMaker()
    {
        Scenario scenario = Get("a URL that is not used");
        scenario.pattern.method = HttpMethod::EhttpPut;
        scenario.pattern.requestBody = "abc";
        scenario.pattern.halvordConfig.emplace();
        scenario.pattern.halvordConfig->resource = "r";
        scenario.pattern.halvordConfig->queryParameters = {{"k", "v"}};
        scenario.pattern.allowSelfSignedCertificates = true;
        scenario.pattern.verbose = true;
        return scenario;
    }

    static Scenario Get(const std::string& url)
    {
        Scenario scenario{{}, &Make<VORTAN_MW::QXCurlEasyHandlerFactory>, "next"};
        scenario.pattern.url = url;
        scenario.pattern.method = HttpMethod::EhttpGet;
        scenario.pattern.headers = {{"A", "1"}};
        scenario.pattern.segmented = GetParam();
        return scenario;
    }
};

INSTANTIATE_TEST_SUITE_P(Each, WrapperFailures, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& segmented) {
                             return segmented.param ? "Segmented" : "Plain";
                         });

// What ended in another way than an exception does.
Endings WithoutException(Endings endings)
{
    endings.erase(
        std::remove_if(endings.begin(), endings.end(),
                       [](const auto& each) { return each.second == "ends the process"; }),
        endings.end());
    return endings;
}

std::vector<std::string> Operations(const Endings& endings)
{
    std::vector<std::string> operations;
    for (const auto& [operation, ending] : endings) {
        operations.push_back(operation);
    }
    return operations;
}

}  // namespace

// An option that is refused is left out. Without the callback that would receive them, bytes are
// dropped; without the pointer to go with it, the callback refuses them.
TEST_P(WrapperFailures, WhatReturnsFalseIsAnsweredInAPutToTheMaker)
{
    EXPECT_THAT(
        FailEach(PutToTheMaker(), refusingQXCurl),
        ElementsAre(
            Pair("nothing", "success 200"), Pair("Initialize", "success 200"),
            Pair("setVistrelClient", "failure"), Pair("setVistrelHeader", "failure"),
            Pair("setHalvordPormelSSLContext", "failure"),
            Pair("setOption 39", "success 200 -option 39 long 0"),
            Pair("init_ssl_lock", "success 200"), Pair("deinit_ssl_lock", "success 200"),
            Pair("setOption 50", "success 200 -option 50 https://maker/r?k=v"),
            Pair("setOption 26", "success 200 -option 26 int 1"),
            Pair("setOption 15", "success 200 -option 15 int 1"),
            Pair("setOption 79", "success 200 -option 79 callback -upload abc"),
            Pair("setOption 87", "success 200 -option 87 pointer -upload abc"),
            Pair("setOption 43", "success 200 -option 43 long long 3"),
            Pair("setOption 18", "success 200 -option 18 int 2"),
            Pair("setOption 80", "success 200 -X-Seen -option 80 callback"),
            Pair("setOption 88", "failure"),
            Pair("setOption 78", AllOf(StartsWith("success 200 -client"), EndsWith("-upload abc"))),
            Pair("setOption 86", "failure"),
            Pair("setOption 75", "success 200 -option 75 list [Content-Length:3] [A: 1]"),
            Pair("setOption 30", "success 200 -option 30 long 30"),
            Pair("setTimeout", "success 200 -timeout 0 10"),
            Pair("setOption 20", "success 200 -option 20 long 1"),
            Pair("setOption 21", "success 200 -option 21 long 1"),
            Pair("setOption 31", "success 200 -option 31 long 100"),
            Pair("setOption 32", "success 200 -option 32 long 30"),
            Pair("setOption 27", "success 200 -option 27 long 15728640"),
            Pair("setOption 1", "success 200 -option 1 long 1"),
            Pair("setOption 3", "success 200 -option 3 long 0"), Pair("send", "failure"),
            Pair("getInfo", "success 0"), Pair("deinit_ssl_lock", "success 200")));
}

TEST_P(WrapperFailures, WhatReturnsFalseIsAnsweredInADownload)
{
    EXPECT_THAT(
        FailEach(Get("http://server"), refusingQXCurl),
        ElementsAre(
            Pair("nothing", "success 200"), Pair("Initialize", "success 200"),
            Pair("setOption 50", "success 200 -option 50 http://server"),
            Pair("setOption 17", "success 200 -option 17 long 1"),
            Pair("setOption 18", "success 200 -option 18 int 2"),
            Pair("setOption 80", "success 200 -X-Seen -option 80 callback"),
            Pair("setOption 88", "failure"),
            Pair("setOption 78", StartsWith("success 200 -option 17 long 1 -option 18 int 2")),
            Pair("setOption 86", "failure"),
            Pair("setOption 75", "success 200 -option 75 list [Content-Length:0] [A: 1]"),
            Pair("setOption 30", "success 200 -option 30 long 30"),
            Pair("setTimeout", "success 200 -timeout 0 10"),
            Pair("setOption 20", "success 200 -option 20 long 1"),
            Pair("setOption 21", "success 200 -option 21 long 1"),
            Pair("setOption 31", "success 200 -option 31 long 100"),
            Pair("setOption 32", "success 200 -option 32 long 30"),
            Pair("setOption 27", "success 200 -option 27 long 15728640"),
            Pair("setOption 3", "success 200 -option 3 long 0"), Pair("send", "failure"),
            Pair("getInfo", "success 0")));
}

TEST_P(WrapperFailures, AHeadStaysAHeadIfOneOfItsSwitchesIsRefused)
{
    Scenario scenario = Get("http://server");
    scenario.pattern.method = HttpMethod::EhttpHead;
    EXPECT_THAT(FailEach(scenario, refusingQXCurl),
                AllOf(Contains(Pair("nothing", "success 200")),
                      Contains(Pair("setOption 24", "success 200")).Times(2)));
}

// The clean-up and the release of the SSL lock run in destructors, which no exception may leave.
TEST_P(WrapperFailures, WhatThrowsEndsTheProcessInAPutToTheMaker)
{
    const Endings endings = FailEach(PutToTheMaker(), throwingQXCurl);
    EXPECT_THAT(WithoutException(endings),
                ElementsAre(Pair("nothing", "success 200"),
                            Pair("deinit_ssl_lock", "ends the process at once"),
                            Pair("deinit_ssl_lock", "ends the process at once"),
                            Pair("reset", "ends the process at once")));
    std::vector<std::string> operations = Operations(FailEach(PutToTheMaker(), refusingQXCurl));
    for (const char* const silent :
         {"QXCurlEasy", "makeQueryString", "makeUri", "checkIsHttps", "reset"}) {
        operations.emplace_back(silent);
    }
    EXPECT_THAT(Operations(endings), UnorderedElementsAreArray(operations));
}

TEST_P(WrapperFailures, WhatThrowsEndsTheProcessWhenSendingFails)
{
    const Endings endings = FailEach(Get("http://refused"), throwingQXCurl);
    EXPECT_THAT(WithoutException(endings),
                ElementsAre(Pair("nothing", "failure"), Pair("reset", "ends the process at once")));
    EXPECT_THAT(Operations(endings), Contains("getLastError"));
}
