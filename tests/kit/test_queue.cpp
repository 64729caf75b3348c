// The queue as its clients see it: places, priorities, cancelling, and one outcome for each ticket.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <stdexcept>

#include "CaughtLog.h"
#include "Gate.h"
#include "QueueClient.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using Answer = ScriptedServer::Answer;
using KIT::Category;
using KIT::Priority;
using KIT::Ticket;
using KIT::TransferQueue;
using Then = Answer::Then;
using Kind = KIT::TransferEvent::Kind;

namespace {

class KitQueue : public ::testing::Test
{
protected:
    CaughtLog log;
    std::shared_ptr<RecordingQueueObserver> observer = std::make_shared<RecordingQueueObserver>();
};

}  // namespace

TEST_F(KitQueue, PerformsAnyNumberFourAtATime)
{
    std::atomic<int> running{0};
    std::atomic<int> most{0};
    {
        TransferQueue queue(LocalSession(), observer);
        for (int i = 0; i < 200; ++i) {
            queue.Add(QueueRequest([&](const auto&) {
                const int now = ++running;
                int seen = most;
                while (now > seen && !most.compare_exchange_weak(seen, now)) {
                }
                --running;
                return true;
            }));
        }
        observer->WaitForOutcomes(200);
    }
    EXPECT_EQ(observer->Count(Category::Success), 200U);
    EXPECT_LE(most, 4);
    for (const std::string& line : log.Summaries()) {
        EXPECT_EQ(line.find("Maximum number of parallel"), std::string::npos) << line;
    }
}

TEST_F(KitQueue, HasFourRunningAtOnce)
{
    Gate four;
    Gate go;
    std::atomic<int> running{0};
    TransferQueue queue(LocalSession(), observer);
    for (int i = 0; i < 5; ++i) {
        queue.Add(QueueRequest([&](const auto&) {
            if (++running == 4) {
                four.Open();
            }
            return go.Wait();
        }));
    }
    EXPECT_TRUE(four.Wait());
    EXPECT_EQ(observer->CountOfOutcomes(), 0U);
    go.Open();
    EXPECT_TRUE(observer->WaitForOutcomes(5));
}

TEST_F(KitQueue, TellsTheOutcomeOnceAndLast)
{
    ScriptedServer server(std::vector<Answer>{{Good}});
    TransferQueue queue(LocalSession(), observer);
    const Ticket ticket = queue.Add(QueueRequest(server.Url()));
    EXPECT_EQ(observer->OutcomeOf(ticket), Category::Success);
    const auto record = observer->Of(ticket);
    EXPECT_EQ(record.status, 200);
    EXPECT_TRUE(record.isOutcomeLast);
    ASSERT_FALSE(record.events.empty());
    EXPECT_EQ(record.events.front(), Kind::Attempt);
    EXPECT_NE(record.events.back(), Kind::End);
    EXPECT_FALSE(queue.Cancel(ticket));
}

TEST_F(KitQueue, CancelsWhatWaits)
{
    Gate go;
    TransferQueue queue(LocalSession(), observer);
    std::array<Ticket, 4> running = {};
    for (Ticket& ticket : running) {
        ticket = queue.Add(QueueRequest([&](const auto&) { return go.Wait(); }));
    }
    bool isPerformed = false;
    const Ticket waiting = queue.Add(QueueRequest([&](const auto&) { return isPerformed = true; }));
    EXPECT_TRUE(queue.Cancel(waiting));
    EXPECT_FALSE(queue.Cancel(waiting));
    EXPECT_EQ(observer->OutcomeOf(waiting), Category::Cancelled);
    EXPECT_EQ(observer->Of(waiting).sentence, "The transfer was cancelled.");
    go.Open();
    for (const Ticket ticket : running) {
        EXPECT_EQ(observer->OutcomeOf(ticket), Category::Success);
    }
    EXPECT_FALSE(isPerformed);
}

TEST_F(KitQueue, CancelsATransferWhoseServerIsSilent)
{
    ScriptedServer server(std::vector<Answer>{{"", Then::Stall}});
    TransferQueue queue(LocalSession(), observer);
    const Ticket ticket = queue.Add(QueueRequest(server.Url()));
    ASSERT_TRUE(server.WaitForRequests(1));
    EXPECT_TRUE(queue.Cancel(ticket));
    EXPECT_EQ(observer->OutcomeOf(ticket), Category::Cancelled);
}

TEST_F(KitQueue, CancelsAHandlerThroughItsFactory)
{
    Gate begun;
    Gate stopped;
    TransferQueue queue(LocalSession(), observer);
    const Ticket ticket = queue.Add(QueueRequest(
        [&](const auto&) {
            begun.Open();
            stopped.Wait();
            return false;
        },
        [&] { stopped.Open(); }));
    ASSERT_TRUE(begun.Wait());
    EXPECT_TRUE(queue.Cancel(ticket));
    EXPECT_EQ(observer->OutcomeOf(ticket), Category::Cancelled);
}

TEST_F(KitQueue, TellsThatAHandlerWasQuickerThanTheCancel)
{
    Gate begun;
    Gate cancelled;
    TransferQueue queue(LocalSession(), observer);
    const Ticket ticket = queue.Add(QueueRequest([&](const auto&) {
        begun.Open();
        return cancelled.Wait();
    }));
    ASSERT_TRUE(begun.Wait());
    EXPECT_TRUE(queue.Cancel(ticket));
    cancelled.Open();
    EXPECT_EQ(observer->OutcomeOf(ticket), Category::Success);
}

TEST_F(KitQueue, GivesNoChunkToACancelledClient)
{
    Gate begun;
    Gate cancelled;
    bool isDelivered = false;
    bool isRefused = false;
    TransferQueue queue(LocalSession(), observer);
    RequestPtr request = QueueRequest([&](const ITransferHandler::TransferDetail& detail) {
        begun.Open();
        cancelled.Wait();
        isRefused = !detail.dataCallback(std::make_unique<ITransferHandler::Bytes>(1), nullptr);
        return true;  // as a handler that ignores the refusal
    });
    request->segmented = true;
    request->dataCallback = [&](const auto&, void*) { isDelivered = true; };
    const Ticket ticket = queue.Add(std::move(request));
    ASSERT_TRUE(begun.Wait());
    EXPECT_TRUE(queue.Cancel(ticket));
    cancelled.Open();
    EXPECT_EQ(observer->OutcomeOf(ticket), Category::Cancelled);
    EXPECT_TRUE(isRefused);
    EXPECT_FALSE(isDelivered);
}

TEST_F(KitQueue, EndsAllWithFourSilentServers)
{
    ScriptedServer server(std::vector<Answer>{{"", Then::Stall}});
    {
        TransferQueue queue(LocalSession(), observer);
        for (int i = 0; i < 20; ++i) {
            queue.Add(QueueRequest(server.Url()));
        }
        ASSERT_TRUE(server.WaitForRequests(4));
    }
    EXPECT_EQ(observer->Count(Category::Cancelled), 20U);
    EXPECT_EQ(observer->CountOfOutcomes(), 20U);
}

TEST_F(KitQueue, CancelsAll)
{
    ScriptedServer server(std::vector<Answer>{{"", Then::Stall}});
    TransferQueue queue(LocalSession(), observer);
    for (int i = 0; i < 20; ++i) {
        queue.Add(QueueRequest(server.Url()));
    }
    ASSERT_TRUE(server.WaitForRequests(4));
    queue.CancelAll();
    EXPECT_TRUE(observer->WaitForOutcomes(20));
    EXPECT_EQ(observer->Count(Category::Cancelled), 20U);
    const Ticket later = queue.Add(QueueRequest([](const auto&) { return true; }));
    EXPECT_EQ(observer->OutcomeOf(later), Category::Success);
}

TEST_F(KitQueue, ABackOffHoldsNoPlace)
{
    ScriptedServer server([](const ScriptedServer::Request& request) {
        return request.target == "/busy"
                   ? Answer{HttpResponse("HTTP/1.1 503 Busy", "", {"Retry-After: 3600"})}
                   : Answer{Good};
    });
    KIT::TransferPolicy policy = LocalPolicy();
    policy.SetLongestBackoff(std::chrono::hours(2)).SetAltogether(std::chrono::hours(10));
    TransferQueue queue(std::make_shared<KIT::HttpSession>(policy), observer);
    std::array<Ticket, 6> busy = {};
    for (Ticket& ticket : busy) {
        ticket = queue.Add(QueueRequest(server.Url("/busy")));
    }
    for (const Ticket ticket : busy) {
        ASSERT_TRUE(observer->WaitFor(ticket, Kind::Retry));
    }
    EXPECT_EQ(observer->OutcomeOf(queue.Add(QueueRequest(server.Url("/")))), Category::Success);
    EXPECT_TRUE(queue.Cancel(busy.front()));
    EXPECT_EQ(observer->OutcomeOf(busy.front()), Category::Cancelled);
    EXPECT_EQ(observer->CountOfOutcomes(), 2U);
    queue.CancelAll();
    EXPECT_TRUE(observer->WaitForOutcomes(7));
    EXPECT_EQ(observer->Count(Category::Cancelled), 6U);
}

TEST_F(KitQueue, WaitsForAFixedDelayItself)
{
    std::atomic<int> performed{0};
    TransferQueue queue(LocalSession(), observer);
    std::vector<Ticket> delayed;
    for (int i = 0; i < 5; ++i) {
        RequestPtr request = QueueRequest([&](const auto&) { return ++performed > 0; });
        request->fixedDelay = std::int64_t{3600} * 1000;
        delayed.push_back(queue.Add(std::move(request)));
    }
    RequestPtr soon = QueueRequest(
        [](const ITransferHandler::TransferDetail& detail) { return !detail.fixedDelay; });
    soon->fixedDelay = 20;
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(observer->OutcomeOf(queue.Add(std::move(soon))), Category::Success);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
    EXPECT_TRUE(queue.Cancel(delayed[2]));
    EXPECT_EQ(observer->OutcomeOf(delayed[2]), Category::Cancelled);
    EXPECT_EQ(performed, 0);
    EXPECT_EQ(observer->CountOfOutcomes(), 2U);
}

TEST_F(KitQueue, WaitsForARandomDelayItself)
{
    TransferQueue queue(LocalSession(), observer);
    RequestPtr request = QueueRequest([](const auto&) { return true; });
    request->randomDelay = ITransferHandler::Configuration::RandomDelay{3600, 7200};
    const Ticket later = queue.Add(std::move(request));
    request = QueueRequest([](const auto&) { return true; });
    request->randomDelay = ITransferHandler::Configuration::RandomDelay{0, 0};
    EXPECT_EQ(observer->OutcomeOf(queue.Add(std::move(request))), Category::Success);
    EXPECT_TRUE(observer->Of(later).outcomes.empty());
}

TEST_F(KitQueue, AddsAndCancelsInsideItsCallbacks)
{
    ScriptedServer server(std::vector<Answer>{{Good}});
    auto queue = std::make_unique<TransferQueue>(LocalSession(), observer);
    Gate over;
    std::atomic<bool> isFirstOver{false};
    std::atomic<Ticket> second{0};  // whose outcome may come before Add returns
    observer->whenOver = [&](Ticket ticket) {
        if (!isFirstOver.exchange(true)) {
            EXPECT_NE(queue->Add(QueueRequest(server.Url())), 0U);
        } else {
            second = ticket;
            over.Open();
        }
    };
    observer->whenTold = [&](Ticket ticket, Kind kind) {
        if (isFirstOver && kind == Kind::Attempt) {
            EXPECT_TRUE(queue->Cancel(ticket));
        }
    };
    queue->Add(QueueRequest([](const auto&) { return true; }));
    ASSERT_TRUE(over.Wait());
    EXPECT_EQ(observer->OutcomeOf(second), Category::Cancelled);
    queue.reset();
    EXPECT_EQ(observer->CountOfOutcomes(), 2U);
}

TEST_F(KitQueue, RefusesWhatIsAddedDuringItsDestruction)
{
    Gate begun;
    std::atomic<Ticket> refused{1};
    auto queue = std::make_unique<TransferQueue>(LocalSession(), observer);
    TransferQueue* const raw = queue.get();
    Gate stopped;
    queue->Add(QueueRequest(
        [&](const auto&) {
            begun.Open();
            stopped.Wait();
            refused = raw->Add(QueueRequest([](const auto&) { return true; }));
            EXPECT_EQ(raw->Fetch("https://example.org/").get().outcome.GetCategory(),
                      Category::Cancelled);
            return true;
        },
        [&] { stopped.Open(); }));
    ASSERT_TRUE(begun.Wait());
    queue.reset();
    EXPECT_EQ(refused, 0U);
    EXPECT_EQ(observer->CountOfOutcomes(), 1U);
}

TEST_F(KitQueue, RefusesWhatAnAgentWouldRefuse)
{
    TransferQueue queue(LocalSession(), observer);
    EXPECT_THROW(queue.Add(nullptr), std::invalid_argument);
    EXPECT_THROW(queue.Add(QueueRequest("")), std::invalid_argument);
    RequestPtr request = QueueRequest("http://127.0.0.1/");
    request->completeCallback = [](const auto&, void*) {};
    EXPECT_THROW(queue.Add(std::move(request)), std::invalid_argument);
    request = QueueRequest("http://127.0.0.1/");
    request->method = HttpMethod::EhttpPost;
    EXPECT_THROW(queue.Add(std::move(request)), std::invalid_argument);
    request = QueueRequest("http://127.0.0.1/");
    request->requestBody = "body";
    EXPECT_THROW(queue.Add(std::move(request)), std::invalid_argument);
    request = QueueRequest("http://127.0.0.1/");
    request->halvordConfig = ITransferHandler::Configuration::HalvordConfig();
    EXPECT_THROW(queue.Add(std::move(request)), std::invalid_argument);
    request = QueueRequest("http://127.0.0.1/");
    request->randomDelay = ITransferHandler::Configuration::RandomDelay{2, 1};
    EXPECT_THROW(queue.Add(std::move(request)), std::invalid_argument);
    EXPECT_THROW(queue.Add(QueueRequest("http://127.0.0.1/"), static_cast<Priority>(3)),
                 std::invalid_argument);
    EXPECT_THROW(queue.Fetch(""), std::invalid_argument);
    EXPECT_THROW(TransferQueue(nullptr), std::invalid_argument);
}

TEST(KitQueueDeathTest, EndsTheProcessIfItIsDestroyedInsideACallback)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const auto observer = std::make_shared<RecordingQueueObserver>();
            auto queue = std::make_unique<TransferQueue>(LocalSession(), observer);
            Gate never;
            observer->whenOver = [&](Ticket) { queue.reset(); };
            queue->Add(QueueRequest([](const auto&) { return true; }));
            never.Wait();
        },
        "A TransferQueue is destroyed inside one of its callbacks");
}
