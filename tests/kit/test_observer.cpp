// What an observer hears of a transfer.

#include <gtest/gtest.h>

#include <stdexcept>

#include "CaughtLog.h"
#include "IndexedBytes.h"
#include "KitClient.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using KIT::TransferEvent;
using Kind = TransferEvent::Kind;
using Then = ScriptedServer::Answer::Then;

namespace {

class KitObserver : public ::testing::Test
{
protected:
    const CaughtLog log;
    KIT::HttpSession session{LocalPolicy()};
};

// Throws when it hears of an event of the given kind.
class ThrowingObserver : public KIT::ITransferObserver
{
public:
    explicit ThrowingObserver(Kind kind) : m_Kind(kind) {}

    void OnEvent(const TransferEvent& event) override
    {
        if (event.GetKind() == m_Kind) {
            throw std::runtime_error("from the observer");
        }
    }

private:
    const Kind m_Kind;
};

std::vector<Kind> KindsOf(const RecordingObserver& observer)
{
    std::vector<Kind> kinds;
    for (const auto& event : observer.events) {
        if (event.kind != Kind::Progress) {
            kinds.push_back(event.kind);
        }
    }
    return kinds;
}

}  // namespace

TEST_F(KitObserver, HearsOfEachStepInOrder)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 503 Busy", "")},
                           {HttpResponse("HTTP/1.1 302 Found", "", {"Location: /b"})},
                           {HttpResponse("HTTP/1.1 200 OK", IndexedText(LongLength))}});
    const Course course = Watch(session, Request(server.Url()));
    const auto& events = course.observer->events;
    EXPECT_EQ(KindsOf(*course.observer),
              (std::vector<Kind>{Kind::Attempt, Kind::Connection, Kind::Header, Kind::Retry,
                                 Kind::Attempt, Kind::Connection, Kind::Header, Kind::Connection,
                                 Kind::Header, Kind::End}));
    EXPECT_GE(course.observer->Count(Kind::Progress), 1U);
    std::vector<long> statuses;
    for (const auto& event : events) {
        if (event.kind == Kind::Header) {
            statuses.push_back(event.status);
        }
        if (event.kind == Kind::Retry) {
            EXPECT_EQ(event.category, Category::HttpStatus);
            EXPECT_EQ(event.sentence, "The server answered with HTTP status 503 (host 127.0.0.1).");
        }
    }
    EXPECT_EQ(statuses, (std::vector<long>{503, 302, 200}));
    EXPECT_EQ(events.back().category, Category::Success);
    EXPECT_EQ(events.back().attempt, 2U);
    EXPECT_EQ(events.back().delivered, LongLength);
    EXPECT_EQ(events.back().expected, static_cast<std::int64_t>(LongLength));
    EXPECT_GT(events.back().total.count(), 0);
}

TEST_F(KitObserver, LearnsWhetherAConnectionIsKept)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", "body")}});
    EXPECT_FALSE(Watch(session, Request(server.Url())).observer->events.back().isKept);
    const Course second = Watch(session, Request(server.Url()));
    EXPECT_TRUE(second.observer->events.back().isKept);
    for (const auto& event : second.observer->events) {
        EXPECT_EQ(event.isKept, event.kind != Kind::Attempt) << static_cast<int>(event.kind);
    }
}

TEST_F(KitObserver, LearnsOfTheLastBytesBeforeAPause)
{
    ScriptedServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123", Then::Stall}});
    KIT::HttpSession own(LocalPolicy().SetAttempts(1).SetSilence(std::chrono::milliseconds(500)));
    const Course course = Watch(own, Request(server.Url()));
    EXPECT_EQ(course.Category(), Category::TimedOut);
    std::uint64_t delivered = 0;
    for (const auto& event : course.observer->events) {
        delivered = event.kind == Kind::Progress ? event.delivered : delivered;
    }
    EXPECT_EQ(delivered, 4U);
}

TEST_F(KitObserver, LearnsWhereRedirectsLead)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 302 Found", "", {"Location: /b?c=d"})},
                           {HttpResponse("HTTP/1.1 200 OK", "", {"Location: /not-a-redirect"})}});
    const Course course = Watch(session, Request(server.Url("/a")));
    std::vector<std::string> targets;
    for (const auto& event : course.observer->events) {
        if (!event.redirectTarget.empty()) {
            EXPECT_EQ(event.kind, Kind::Header);
            EXPECT_EQ(event.status, 302);
            targets.push_back(event.redirectTarget);
        }
    }
    EXPECT_EQ(targets, std::vector<std::string>{server.Url("/b?c=d")});
}

TEST_F(KitObserver, LearnsOfARedirectThatLeadsNowhereAsItWasSent)
{
    const auto targetOf = [&](const std::string& location) {
        ScriptedServer server(
            {{HttpResponse("HTTP/1.1 302 Found", "", {"Location: " + location})}});
        const Course course = Watch(session, Request(server.Url()));
        EXPECT_EQ(course.Category(), Category::RedirectRefused);
        for (const auto& event : course.observer->events) {
            if (event.kind == Kind::Header) {
                return event.redirectTarget;
            }
        }
        return std::string("no header");
    };
    EXPECT_EQ(targetOf("http://"), "http://");
    EXPECT_EQ(targetOf("ftp://example.org/"), "ftp://example.org/");
    EXPECT_EQ(targetOf("http://u:p@example.org/"), "http://u:p@example.org/");
}

TEST_F(KitObserver, EndsATransferByThrowing)
{
    for (const Kind kind :
         {Kind::Attempt, Kind::Connection, Kind::Header, Kind::Progress, Kind::Retry, Kind::End}) {
        ScriptedServer server(
            {{HttpResponse("HTTP/1.1 503 Busy", "")}, {HttpResponse("HTTP/1.1 200 OK", "body")}});
        KIT::TransferOptions options;
        options.SetObserver(std::make_shared<ThrowingObserver>(kind));
        EXPECT_THROW(Fetch(session, Request(server.Url()), options), std::runtime_error)
            << static_cast<int>(kind);
        EXPECT_TRUE(Fetch(session, Request(server.Url())).success);
    }
}

TEST_F(KitObserver, SeesThatTheClientStopped)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", "body")}});
    const auto observer = std::make_shared<RecordingObserver>();
    KIT::TransferOptions options;
    options.SetObserver(observer);
    const auto factory = session.MakeFactory(options);
    const auto refuse = [](std::unique_ptr<ITransferHandler::Bytes>, void*) { return false; };
    EXPECT_FALSE(
        factory->Create()->GetTransfer(Request(server.Url()), nullptr, refuse, nullptr).success);
    EXPECT_EQ(observer->End(), Category::ClientStopped);
    EXPECT_EQ(server.Requests().size(), 1U);
}

TEST_F(KitObserver, HasItsWarningsInTheLogUnderTheKitsTag)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 503 Busy", "")}});
    Watch(session, Request(server.Url()));
    std::vector<std::string> messages;
    for (const LogLine& line : log.Lines()) {
        if (line.tag == "VORTANKIT") {
            messages.push_back(line.message);
        }
    }
    ASSERT_EQ(messages.size(), 5U);
    EXPECT_EQ(messages[4],
              "The server answered with HTTP status 503 (host 127.0.0.1). Attempts: 5");
}
