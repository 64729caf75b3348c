// A transfer ends, whatever its server does.

#include <AsyncTransferAgentManager.h>
#include <gtest/gtest.h>

#include "Gate.h"
#include "KitClient.h"
#include "LoopbackPort.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using std::chrono::milliseconds;
using Then = ScriptedServer::Answer::Then;

namespace {

class KitEnd : public KitPromise
{
protected:
    static KIT::TransferPolicy OneAttempt() { return LocalPolicy().SetAttempts(1); }
};

INSTANTIATE_TEST_SUITE_P(Each, KitEnd, Ways(), NameOfWay);

constexpr char Endless[] = "HTTP/1.1 200 OK\r\n\r\n";

}  // namespace

TEST_P(KitEnd, ComesWhenTheServerIsSilent)
{
    ScriptedServer server({{"", Then::Stall}});
    const Course course =
        WatchWith(OneAttempt().SetSilence(milliseconds(50)), Request(server.Url()));
    EXPECT_FALSE(course.received.success);
    EXPECT_EQ(course.received.status, 0);
    EXPECT_EQ(course.Category(), Category::TimedOut);
}

TEST_P(KitEnd, ComesWhenTheServerFallsSilentInTheBody)
{
    ScriptedServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc", Then::Stall}});
    const Course course =
        WatchWith(OneAttempt().SetSilence(milliseconds(50)), Request(server.Url()));
    EXPECT_EQ(course.Category(), Category::TimedOut);
    EXPECT_EQ(course.received.status, 200);
    EXPECT_EQ(course.received.body, DeliversFailures() ? "abc" : "");
}

TEST_P(KitEnd, ComesWhenTheConnectionTakesTooLong)
{
    LoopbackPort port;
    port.Listen();
    const Course course =
        WatchWith(OneAttempt().SetSchemes({"https"}).SetConnecting(milliseconds(50)),
                  Request(port.Url("https")));
    EXPECT_EQ(course.Category(), Category::TimedOut);
    EXPECT_EQ(course.observer->Count(KIT::TransferEvent::Kind::Connection), 0U);
}

TEST_P(KitEnd, ComesWhenTheWholeTransferTakesTooLong)
{
    ScriptedServer server({{Endless, Then::Drip}});
    const Course course = WatchWith(LocalPolicy()
                                        .SetConnecting(milliseconds(200))
                                        .SetSilence(milliseconds(200))
                                        .SetAltogether(milliseconds(200)),
                                    Request(server.Url()));
    EXPECT_EQ(course.Category(), Category::TimedOut);
    EXPECT_EQ(server.Requests().size(), 1U);
    EXPECT_GE(course.observer->events.back().total, milliseconds(190));
}

TEST_P(KitEnd, ComesWhenTheServerIsTooSlow)
{
    ScriptedServer server({{Endless, Then::Drip}});
    const Course course = WatchWith(
        OneAttempt().SetSilence(milliseconds(100)).SetLowestSpeed(1000000), Request(server.Url()));
    EXPECT_EQ(course.Category(), Category::TimedOut);
}

TEST_P(KitEnd, ComesWhenTheServerIsNotThere)
{
    const LoopbackPort port;
    const Course course = Watch(Request(port.Url()));
    EXPECT_EQ(course.Category(), Category::ConnectionRefused);
    EXPECT_EQ(course.received.status, 0);
    EXPECT_EQ(course.observer->events.back().attempt, 5U);
    EXPECT_EQ(course.observer->events.back().sentence,
              "The host refused the connection (host 127.0.0.1).");
}

TEST_P(KitEnd, DoesNotCountTheTimeOfTheClientsCallbacks)
{
    // Two responses, so that the observer is called in between.
    ScriptedServer server({{HttpResponse("HTTP/1.1 302 Found", "", {"Location: /b"})},
                           {HttpResponse("HTTP/1.1 200 OK", "body")}});
    class SlowObserver : public KIT::ITransferObserver
    {
        void OnEvent(const KIT::TransferEvent&) override
        {
            std::this_thread::sleep_for(milliseconds(60));
        }
    };
    KIT::HttpSession own(OneAttempt().SetSilence(milliseconds(50)));
    KIT::TransferOptions options;
    options.SetObserver(std::make_shared<SlowObserver>());
    EXPECT_TRUE(Fetch(own, Request(server.Url()), options).success);
}

TEST_P(KitEnd, ComesAtOnceWhenTheAgentCancels)
{
    if (GetParam() == Way::WithoutAgent) {
        return;
    }
    ScriptedServer server({{Endless, Then::Stall}});
    class EndGate : public RecordingObserver
    {
    public:
        void OnEvent(const KIT::TransferEvent& event) override
        {
            RecordingObserver::OnEvent(event);
            if (event.GetKind() == KIT::TransferEvent::Kind::End) {
                over.Open();
            }
        }

        Gate over;
    };
    const auto observer = std::make_shared<EndGate>();
    KIT::TransferOptions options;
    options.SetObserver(observer);
    const auto agent = AsyncTransferAgentManager::Create();
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    static_cast<Configuration&>(*request) = Request(server.Url());
    request->segmented = GetParam() == Way::Segmented;
    request->handlerFactory = session.MakeFactory(options);
    request->dataCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {};
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    ASSERT_TRUE(server.WaitForRequests(1));
    EXPECT_TRUE(agent->CancelTransfer(handle));
    ASSERT_TRUE(observer->over.Wait());
    EXPECT_EQ(observer->End(), Category::Cancelled);
}
