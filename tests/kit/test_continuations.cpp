// A body that breaks off goes on where it broke off.

#include <gtest/gtest.h>

#include "IndexedBytes.h"
#include "KitClient.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using Answer = ScriptedServer::Answer;
using Then = Answer::Then;

namespace {

class KitContinue : public KitPromise
{
protected:
    // The outcome of a transfer whose body "0123456789" breaks off after 4 bytes, and is then
    // answered so.
    Course AfterCut(const std::string& firstLines, const Answer& second)
    {
        ScriptedServer server(
            {{"HTTP/1.1 200 OK\r\n" + firstLines + "\r\n0123", Then::Close}, second});
        Course course = Watch(Request(server.Url()));
        requests = server.Requests();
        return course;
    }

    static std::string Part(const std::string& lines, const std::string& body,
                            const std::string& version = "ETag: \"a\"\r\n")
    {
        return "HTTP/1.1 206 Part\r\n" + version + lines + "\r\n" + body;
    }

    // Further lines and the body of a response with the same version, and without a length.
    static std::string InAChunk(const std::string& body)
    {
        const char length = "0123456789abc"[body.size()];
        return std::string("ETag: \"a\"\r\nTransfer-Encoding: chunked\r\n\r\n") + length + "\r\n" +
               body + "\r\n0\r\n\r\n";
    }

    std::vector<ScriptedServer::Request> requests;
};

INSTANTIATE_TEST_SUITE_P(Each, KitContinue, Ways(), NameOfWay);

constexpr char Tagged[] = "Content-Length: 10\r\nETag: \"a\"\r\n";

}  // namespace

TEST_P(KitContinue, AsksForExactlyWhatIsMissing)
{
    const Course course =
        AfterCut(Tagged, {Part("Content-Range: bytes 4-9/10\r\nContent-Length: 6\r\n", "456789")});
    EXPECT_TRUE(course.received.success);
    EXPECT_EQ(course.received.status, 200);
    EXPECT_EQ(course.received.header, std::string("HTTP/1.1 200 OK\r\n") + Tagged + "\r\n");
    EXPECT_EQ(course.received.body, "0123456789");
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_FALSE(requests[0].Has("Range"));
    EXPECT_FALSE(requests[0].Has("Accept-Encoding"));
    EXPECT_EQ(requests[1].Value("Range"), "bytes=4-");
    EXPECT_EQ(requests[1].Value("If-Range"), "\"a\"");
    EXPECT_FALSE(requests[1].Has("Accept-Encoding"));
}

TEST_P(KitContinue, GoesOnForAsLongAsBytesArrive)
{
    const std::string body = IndexedText(LongLength);
    constexpr std::size_t piece = 50000;
    ScriptedServer server([&body](const ScriptedServer::Request& request) -> Answer {
        const std::string total = std::to_string(body.size());
        if (!request.Has("Range")) {
            return {"HTTP/1.1 200 OK\r\nETag: \"a\"\r\nContent-Length: " + total + "\r\n\r\n" +
                        body.substr(0, piece),
                    Then::Close};
        }
        const std::size_t first = std::stoul(request.Value("Range").substr(6));
        return {"HTTP/1.1 206 Part\r\nETag: \"a\"\r\nContent-Length: " +
                    std::to_string(body.size() - first) + "\r\nContent-Range: bytes " +
                    std::to_string(first) + "-" + std::to_string(body.size() - 1) + "/" + total +
                    "\r\n\r\n" + body.substr(first, piece),
                Then::Close};
    });
    const Course course =
        WatchWith(LocalPolicy().SetRetryBudget(0).SetAttempts(2), Request(server.Url()));
    EXPECT_TRUE(course.received.success);
    EXPECT_TRUE(course.received.body == body);
    EXPECT_EQ(server.Requests().size(), 25U);
}

TEST_P(KitContinue, WaitsForAServerThatFailsInBetween)
{
    ScriptedServer server(
        {{std::string("HTTP/1.1 200 OK\r\n") + Tagged + "\r\n0123", Then::Close},
         {HttpResponse("HTTP/1.1 503 Busy", "bad")},
         {"", Then::Reset},
         {Part("Content-Range: bytes 4-9/10\r\nContent-Length: 6\r\n", "456789")}});
    const Course course = Watch(Request(server.Url()));
    EXPECT_TRUE(course.received.success);
    EXPECT_EQ(course.received.status, 200);
    EXPECT_EQ(course.received.body, "0123456789");
}

TEST_P(KitContinue, SkipsWhatTheClientHasWhereTheServerStartsAgain)
{
    const Course course =
        AfterCut(Tagged, {HttpResponse("HTTP/1.1 200 OK", "0123456789", {"ETag: \"a\""})});
    EXPECT_TRUE(course.received.success);
    EXPECT_EQ(course.received.body, "0123456789");
    EXPECT_EQ(course.received.header, std::string("HTTP/1.1 200 OK\r\n") + Tagged + "\r\n");
}

TEST_P(KitContinue, NeverMixesTwoVersions)
{
    const std::string part = "Content-Range: bytes 4-9/10\r\nContent-Length: 6\r\n";
    for (const std::string& second :
         {HttpResponse("HTTP/1.1 200 OK", "abcdefghij", {"ETag: \"b\""}),
          HttpResponse("HTTP/1.1 200 OK", "abcdefghij"), Part(part, "efghij", "ETag: \"b\"\r\n"),
          Part(part, "efghij", ""),
          Part("Content-Range: bytes 4-10/11\r\nContent-Length: 7\r\n", "efghijk"),
          std::string(
              "HTTP/1.1 416 No\r\nContent-Length: 0\r\nContent-Range: bytes */4\r\n\r\n")}) {
        const Course course = AfterCut(Tagged, {second});
        EXPECT_EQ(course.Category(), Category::Changed) << second;
        EXPECT_EQ(course.received.body, DeliversFailures() ? "0123" : "");
    }
}

TEST_P(KitContinue, TakesAnETagForThatOfOneResource)
{
    const auto whereThePartsAre = [](const std::string& first, const std::string& second) {
        return [first, second](const ScriptedServer::Request& request) -> Answer {
            if (request.target == "/") {
                return {HttpResponse("HTTP/1.1 302 Found", "",
                                     {"Location: " + (request.Has("Range") ? second : first)})};
            }
            return request.Has("Range")
                       ? Answer{Part("Content-Range: bytes 4-9/10\r\nContent-Length: 6\r\n",
                                     "456789")}
                       : Answer{std::string("HTTP/1.1 200 OK\r\n") + Tagged + "\r\n0123",
                                Then::Close};
        };
    };
    ScriptedServer changing(whereThePartsAre("/a", "/b"));
    EXPECT_EQ(Watch(Request(changing.Url())).Category(), Category::Changed);
    // A query often holds the signature of one request.
    ScriptedServer signing(whereThePartsAre("/a?signature=1", "/a?signature=2"));
    EXPECT_EQ(Watch(Request(signing.Url())).Category(), Category::Success);
}

TEST_P(KitContinue, RefusesAPartThatWasNotAskedFor)
{
    for (const char* const range : {"bytes 3-9/10", "bytes 5-9/10", "bytes 4-8/10", "nonsense"}) {
        const Course course = AfterCut(
            Tagged,
            {Part(std::string("Content-Length: 6\r\nContent-Range: ") + range + "\r\n", "efghij")});
        EXPECT_EQ(course.Category(), Category::InvalidResponse) << range;
        EXPECT_EQ(course.received.body, DeliversFailures() ? "0123" : "");
    }
}

TEST_P(KitContinue, NoticesThatNothingWasMissing)
{
    ScriptedServer server(
        {{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nETag: \"a\"\r\n\r\n4\r\n0123\r\n",
          Then::Close},
         {HttpResponse("HTTP/1.1 416 No", "", {"Content-Range: bytes */4"})}});
    const Course course = Watch(Request(server.Url()));
    EXPECT_TRUE(course.received.success);
    EXPECT_EQ(course.received.status, 200);
    EXPECT_EQ(course.received.body, "0123");
}

TEST_P(KitContinue, UsesALastModifiedThatIsStrong)
{
    const std::string modified = "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n";
    const Answer rest = {
        Part("Content-Range: bytes 4-9/10\r\nContent-Length: 6\r\n", "456789", "")};
    EXPECT_TRUE(
        AfterCut("Content-Length: 10\r\nDate: Sun, 06 Nov 1994 08:50:37 GMT\r\n" + modified, rest)
            .received.success);
    EXPECT_EQ(requests[1].Value("If-Range"), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(
        AfterCut("Content-Length: 10\r\nDate: Sun, 06 Nov 1994 08:49:38 GMT\r\n" + modified, rest)
            .Category(),
        Category::ConnectionLost);
    EXPECT_EQ(requests.size(), 1U);
}

TEST_P(KitContinue, DoesNotHappenWithoutAStrongValidator)
{
    for (const char* const line : {"", "ETag: W/\"a\"\r\n"}) {
        const Course course = AfterCut(std::string("Content-Length: 10\r\n") + line,
                                       {HttpResponse("HTTP/1.1 200 OK", "0123456789")});
        EXPECT_EQ(course.Category(), Category::ConnectionLost);
        EXPECT_EQ(requests.size(), 1U);
    }
}

TEST_P(KitContinue, DoesNotHappenToARangeOfTheClients)
{
    ScriptedServer server(
        {{Part("Content-Range: bytes 0-9/20\r\nContent-Length: 10\r\n", "0123"), Then::Close},
         {HttpResponse("HTTP/1.1 200 OK", "0123456789")}});
    Configuration request = Request(server.Url());
    request.headers = {{"Range", "bytes=0-9"}};
    const Course course = Watch(request);
    EXPECT_EQ(course.Category(), Category::ConnectionLost);
    EXPECT_EQ(server.Requests().size(), 1U);
}

TEST_P(KitContinue, DoesNotHappenToAPageThatTellsOfAFailure)
{
    // The first attempt promises a version that the second one knows nothing of.
    ScriptedServer server(
        {{std::string("HTTP/1.1 200 OK\r\n") + Tagged + "\r\n", Then::Close},
         {"HTTP/1.1 404 Not Found\r\nContent-Length: 10\r\n\r\n0123", Then::Close},
         {Part("Content-Range: bytes 4-9/10\r\nContent-Length: 6\r\n", "456789")}});
    Configuration request = Request(server.Url());
    request.failOnError = false;
    const Course course = Watch(request);
    EXPECT_EQ(course.Category(), Category::ConnectionLost);
    EXPECT_EQ(server.Requests().size(), 2U);
}

TEST_P(KitContinue, FailsWhereTheSameVersionHasBecomeShorter)
{
    EXPECT_EQ(
        AfterCut(Tagged, {HttpResponse("HTTP/1.1 200 OK", "012", {"ETag: \"a\""})}).Category(),
        Category::Changed);
    EXPECT_EQ(AfterCut(Tagged, {"HTTP/1.1 200 OK\r\n" + InAChunk("012")}).Category(),
              Category::InvalidResponse);
}

TEST_P(KitContinue, TakesNoByteBeyondTheEnd)
{
    const std::string part = "HTTP/1.1 206 Part\r\nContent-Range: bytes 4-9/10\r\n";
    for (const std::string& second :
         {part + InAChunk("456789ab"), "HTTP/1.1 200 OK\r\n" + InAChunk("0123456789ab"),
          part + "ETag: \"a\"\r\nContent-Length: 8\r\n\r\n456789ab"}) {
        const Course course = AfterCut(Tagged, {second});
        EXPECT_EQ(course.Category(), Category::InvalidResponse) << second;
        EXPECT_EQ(course.received.body.find('a'), std::string::npos);
    }
}

TEST_P(KitContinue, AsksAgainWhereAPartIsShorterThanItSays)
{
    const std::string second = "HTTP/1.1 206 Part\r\nContent-Range: bytes 4-9/10\r\n";
    for (const std::string& rest :
         {InAChunk("456"), std::string("ETag: \"a\"\r\nContent-Length: 3\r\n\r\n456")}) {
        ScriptedServer server(
            {{std::string("HTTP/1.1 200 OK\r\n") + Tagged + "\r\n0123", Then::Close},
             {second + rest},
             {Part("Content-Range: bytes 7-9/10\r\nContent-Length: 3\r\n", "789")}});
        const Course course = Watch(Request(server.Url()));
        EXPECT_EQ(course.Category(), Category::Success) << rest;
        EXPECT_EQ(course.received.body, "0123456789");
        ASSERT_EQ(server.Requests().size(), 3U);
        EXPECT_EQ(server.Requests()[2].Value("Range"), "bytes=7-");
    }
}

TEST_P(KitContinue, LearnsTheEndFromAPart)
{
    const Answer first = {
        "HTTP/1.1 200 OK\r\nETag: \"a\"\r\nTransfer-Encoding: chunked\r\n\r\n"
        "4\r\n0123\r\n",
        Then::Close};
    const std::string range = "HTTP/1.1 206 Part\r\nContent-Range: bytes ";
    ScriptedServer growing(
        {first,
         {range + "4-9/10\r\nETag: \"a\"\r\nContent-Length: 6\r\n\r\n456", Then::Close},
         {range + "7-10/11\r\nETag: \"a\"\r\nContent-Length: 4\r\n\r\n789a"}});
    EXPECT_EQ(Watch(Request(growing.Url())).Category(), Category::Changed);
    ScriptedServer untold(
        {first, {range + "4-9/*\r\nETag: \"a\"\r\nContent-Length: 6\r\n\r\n456789"}});
    EXPECT_EQ(Watch(Request(untold.Url())).Category(), Category::InvalidResponse);
}

TEST_P(KitContinue, TakesNoPartForTheWhole)
{
    ScriptedServer server({{Part("Content-Range: bytes 0-3/10\r\nContent-Length: 4\r\n", "0123")}});
    const Course course = Watch(Request(server.Url()));
    EXPECT_EQ(course.Category(), Category::InvalidResponse);
    EXPECT_EQ(course.received.body, "");
    Configuration request = Request(server.Url());
    request.headers = {{"Range", "bytes=0-3"}};
    EXPECT_EQ(Watch(request).received.body, "0123");
}
