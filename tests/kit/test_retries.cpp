// A transfer is tried again where that may help and can do no harm.

#include <gtest/gtest.h>

#include "KitClient.h"
#include "LoopbackPort.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using Kind = KIT::TransferEvent::Kind;
using Then = ScriptedServer::Answer::Then;

namespace {

class KitRetry : public KitPromise
{
};

INSTANTIATE_TEST_SUITE_P(Each, KitRetry, Ways(), NameOfWay);

const std::string Busy = HttpResponse("HTTP/1.1 503 Busy", "bad");

KIT::TransferOptions Repeatable()
{
    KIT::TransferOptions options;
    options.SetRepeatablePost(true);
    return options;
}

}  // namespace

TEST_P(KitRetry, OutlastsFailuresThatPassAndShowsOneResponse)
{
    ScriptedServer server({{"", Then::Close},
                           {"", Then::Reset},
                           {"HTTP/1.1 200 OK\r\nContent-Le", Then::Close},
                           {Busy},
                           {Good}});
    const Course course = Watch(Request(server.Url()));
    EXPECT_TRUE(course.received.success);
    EXPECT_EQ(course.received.status, 200);
    EXPECT_EQ(course.received.header + course.received.body, Good);
    EXPECT_EQ(course.observer->Count(Kind::Attempt), 5U);
    EXPECT_EQ(course.observer->Count(Kind::Retry), 4U);
}

TEST_P(KitRetry, EndsAfterTheLastAttemptWithItsResponse)
{
    ScriptedServer server({{Busy}});
    const Course course = Watch(Request(server.Url()));
    EXPECT_FALSE(course.received.success);
    EXPECT_EQ(course.received.status, 503);
    EXPECT_EQ(course.Category(), Category::HttpStatus);
    EXPECT_EQ(server.Requests().size(), 5U);
    EXPECT_EQ(course.received.header,
              DeliversFailures() ? Busy.substr(0, Busy.size() - 3) : std::string());
    EXPECT_EQ(course.received.body, "");
}

TEST_P(KitRetry, ShowsTheLastResponseWholeWhereAStatusIsNoFailure)
{
    ScriptedServer server({{Busy}});
    Configuration request = Request(server.Url());
    request.failOnError = false;
    const Course course = Watch(request);
    EXPECT_TRUE(course.received.success);
    EXPECT_EQ(course.received.status, 503);
    EXPECT_EQ(course.received.body, "bad");
    EXPECT_EQ(server.Requests().size(), 5U);
}

TEST_P(KitRetry, DoesNotFollowAStatusThatWillNotPass)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 404 Not Found", "bad")}});
    const Course course = Watch(Request(server.Url()));
    EXPECT_EQ(course.Category(), Category::HttpStatus);
    EXPECT_EQ(course.received.status, 404);
    EXPECT_EQ(server.Requests().size(), 1U);
}

TEST_P(KitRetry, SendsAPutAgainWhole)
{
    ScriptedServer server({{Busy}, {"", Then::Reset}, {Good}});
    EXPECT_TRUE(Watch(Request(server.Url(), HttpMethod::EhttpPut, "upload")).received.success);
    ASSERT_EQ(server.Requests().size(), 3U);
    for (const auto& request : server.Requests()) {
        EXPECT_EQ(request.method, "PUT");
        EXPECT_EQ(request.body, "upload");
    }
}

TEST_P(KitRetry, DoesNotSendAPostAgain)
{
    ScriptedServer server({{Busy}, {Good}});
    const Course course = Watch(Request(server.Url(), HttpMethod::EhttpPost, "upload"));
    EXPECT_EQ(course.received.status, 503);
    EXPECT_EQ(server.Requests().size(), 1U);
    ScriptedServer closing({{"", Then::Close}, {Good}});
    EXPECT_FALSE(Watch(Request(closing.Url(), HttpMethod::EhttpPost, "upload")).received.success);
    EXPECT_EQ(closing.Requests().size(), 1U);
}

TEST_P(KitRetry, SendsAPostAgainWhereItMay)
{
    ScriptedServer server({{Busy}, {"", Then::Close}, {Good}});
    const Course course =
        Watch(Request(server.Url(), HttpMethod::EhttpPost, "upload"), Repeatable());
    EXPECT_TRUE(course.received.success);
    EXPECT_EQ(server.Requests().size(), 3U);
    EXPECT_EQ(server.Requests()[2].body, "upload");
}

TEST_P(KitRetry, SendsAPostAgainOfWhichNothingWasSent)
{
    const LoopbackPort port;
    const Course course = Watch(Request(port.Url(), HttpMethod::EhttpPost, "upload"));
    EXPECT_EQ(course.Category(), Category::ConnectionRefused);
    EXPECT_EQ(course.observer->Count(Kind::Attempt), 5U);
}

TEST_P(KitRetry, SendsAPostOnAConnectionOfItsOwn)
{
    ScriptedServer server({{Good}});
    const Configuration post = Request(server.Url(), HttpMethod::EhttpPost, "upload");
    EXPECT_TRUE(Watch(Request(server.Url())).received.success);
    EXPECT_TRUE(Watch(post, Repeatable()).received.success);
    EXPECT_EQ(server.CountOfConnections(), 1U);
    EXPECT_TRUE(Watch(post).received.success);
    EXPECT_EQ(server.CountOfConnections(), 2U);
}

TEST_P(KitRetry, WaitsAsLongAsTheServerAsks)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 429 Slowly", "", {"Retry-After: 1"})}, {Good}});
    const Course course = Watch(Request(server.Url()));
    EXPECT_TRUE(course.received.success);
    std::chrono::milliseconds delay{0};
    for (const auto& event : course.observer->events) {
        delay += event.kind == Kind::Retry ? event.delay : std::chrono::milliseconds(0);
    }
    EXPECT_GE(delay, std::chrono::seconds(1));
}

TEST_P(KitRetry, EndsWhereTheServerAsksForTooLongAWait)
{
    for (const char* const value : {"6", "Tue, 19 Jan 2038 03:14:08 GMT"}) {
        ScriptedServer server(
            {{HttpResponse("HTTP/1.1 503 Busy", "", {std::string("Retry-After: ") + value})},
             {Good}});
        const Course course = Watch(Request(server.Url()));
        EXPECT_EQ(course.received.status, 503);
        EXPECT_EQ(server.Requests().size(), 1U);
    }
}

TEST_P(KitRetry, DoesNotFollowAnAnswerThatBreaksABound)
{
    const std::string line = "X-Long: " + std::string(1000, 'x') + "\r\n";
    ScriptedServer server(
        {{"HTTP/1.1 503 Busy\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n" + line + line + "\r\n"},
         {Good}});
    const Course course = WatchWith(LocalPolicy().SetLongestHeader(2000), Request(server.Url()));
    EXPECT_EQ(course.Category(), Category::TooLarge);
    EXPECT_EQ(course.observer->Count(Kind::Retry), 0U);
}

TEST_P(KitRetry, SharesABudgetWithTheOthersOfItsSession)
{
    ScriptedServer server({{Busy}});
    KIT::HttpSession own(LocalPolicy().SetRetryBudget(2).SetLongestBackoff(std::chrono::hours(1)));
    for (const std::size_t requests : {3U, 4U, 5U}) {
        ::Watch(own, Request(server.Url()), {}, GetParam());
        EXPECT_EQ(server.Requests().size(), requests);
    }
}
