#include <gmock/gmock.h>

#include <cstdio>
#include <limits>

#include "AgentTestSupport.h"
#include "CaughtLog.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::AsyncTransferAgentManagerPeer;
using VORTAN_MW::ITransferAgentManager;

class AgentShutdown : public testing::Test
{
protected:
    // Starts the destructor and returns when it is past the flag and the sleepers, at its first
    // join.
    std::unique_ptr<Shutdown> Begin()
    {
        m_Log.OnLine([this](const LogLine& line) {
            if (line.message.rfind("joining thread: ", 0) == 0) {
                m_Joining.Open();
            }
        });
        auto shutdown = std::make_unique<Shutdown>(std::move(m_Manager));
        EXPECT_TRUE(m_Joining.Wait());
        return shutdown;
    }
    // The destructor's lines, without their levels.
    std::vector<std::string> DestructorLines() const
    {
        return m_Log.MessagesOf("~AsyncTransferAgentManager");
    }

    CaughtLog m_Log;
    Gate m_Joining;
    RecordingClient m_Client;
    std::unique_ptr<ITransferAgentManager> m_Manager = AsyncTransferAgentManager::Create();
};

TEST_F(AgentShutdown, OfAnIdleManagerLogsTwoLines)
{
    m_Manager.reset();
    EXPECT_THAT(m_Log.Summaries(),
                ElementsAre("D ~AsyncTransferAgentManager:  ",
                            "D ~AsyncTransferAgentManager: number of threads: 0"));
}

TEST_F(AgentShutdown, JoinsARunningWorkerWhichStillCompletesAndRemovesItsJob)
{
    Gate release;
    Gate running;
    m_Manager->RequestTransfer(m_Client.MakeRequest([&](const auto& detail) {
        running.Open();
        release.Wait();
        return Deliver("h", "b")(detail);
    }));
    ASSERT_TRUE(running.Wait());
    const auto shutdown = Begin();
    release.Open();
    shutdown->Join();
    EXPECT_THAT(m_Client.Events(), ElementsAre("header h", "data b", "complete true 200"));
    const auto lines = DestructorLines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[1], "number of threads: 1");
    EXPECT_THAT(lines[2], StartsWith("joining thread: "));
    EXPECT_EQ(lines[3],
              "thread terminated: " + lines[2].substr(std::string("joining thread: ").size()));
    EXPECT_EQ(m_Log.Lines().back().message, lines[3]) << "the worker must be over by then";
    const auto worker = m_Log.MessagesOf("m_PerformTransferThread");
    EXPECT_THAT(worker, ElementsAre("handle: 0", "Cancelling transfer with handle: 0"));
}

TEST_F(AgentShutdown, LogsItsStepsAtTheirLevels)
{
    Gate release;
    Gate running;
    m_Manager->RequestTransfer(m_Client.MakeRequest([&](const auto&) {
        running.Open();
        release.Wait();
        return MakeResult(true, 200);
    }));
    ASSERT_TRUE(running.Wait());
    const auto shutdown = Begin();
    release.Open();
    shutdown->Join();
    std::vector<int> priorities;
    for (const LogLine& line : m_Log.Lines()) {
        if (line.function == "~AsyncTransferAgentManager") {
            priorities.push_back(line.priority);
        }
    }
    EXPECT_THAT(priorities, ElementsAre(3, 3, 4, 4));
}

TEST_F(AgentShutdown, WakesASleepingTransferWhichIsStillSentAndDelivered)
{
    auto request = m_Client.MakeRequest(Deliver("h", "b"));
    request->fixedDelay = Forever;
    m_Manager->RequestTransfer(std::move(request));
    ASSERT_TRUE(m_Log.WaitFor("Start sleeping for: 9223372036854775807 milliseconds"));
    m_Manager.reset();
    EXPECT_THAT(m_Log.Summaries(),
                Contains("D ~AsyncTransferAgentManager: Waking up sleeping thread with handle: 0"));
    EXPECT_EQ(m_Log.Count("Sleep interrupted"), 1U);
    EXPECT_THAT(m_Client.Events(), ElementsAre("header h", "data b", "complete true 200"));
}

// The destructor walks the table of sleepers without the mutex.
TEST_F(AgentShutdown, ASleeperThatItWakesStaysInTheTable)
{
    AsyncTransferAgentManagerPeer peer(*m_Manager);
    std::size_t sleepers = 0;
    auto request = m_Client.MakeRequest([&](const auto& detail) {
        sleepers = peer.SleeperCount();
        return Deliver("h", "b")(detail);
    });
    request->fixedDelay = Forever;
    m_Manager->RequestTransfer(std::move(request));
    ASSERT_TRUE(m_Log.WaitFor("Start sleeping for: 9223372036854775807 milliseconds"));
    m_Manager.reset();
    EXPECT_EQ(sleepers, 1U);
}

TEST_F(AgentShutdown, WakesFourSleepersInTheOrderOfTheirHandles)
{
    for (int count = 0; count < 4; ++count) {
        auto request = m_Client.MakeRequest(Deliver("h", "b"));
        request->fixedDelay = Forever - count;
        m_Manager->RequestTransfer(std::move(request));
        ASSERT_TRUE(m_Log.WaitFor("Start sleeping for: " + std::to_string(Forever - count) +
                                  " milliseconds"));
    }
    m_Manager.reset();
    auto lines = DestructorLines();
    ASSERT_EQ(lines.size(), 14U);
    lines.resize(6);
    EXPECT_THAT(lines,
                ElementsAre(" ", "number of threads: 4", "Waking up sleeping thread with handle: 0",
                            "Waking up sleeping thread with handle: 1",
                            "Waking up sleeping thread with handle: 2",
                            "Waking up sleeping thread with handle: 3"));
    EXPECT_EQ(m_Log.Count("Sleep interrupted"), 4U);
}

// Holds a worker at its very first line, before it has the mutex.
class AgentShutdownBeforeTheWorkerStarts : public AgentShutdown
{
protected:
    void Run(std::unique_ptr<RecordingClient::Request> request)
    {
        m_Log.OnLine([this](const LogLine& line) {
            if (line.message.rfind("joining thread: ", 0) == 0) {
                m_Joining.Open();
            }
            if (line.function == "m_PerformTransferThread" && line.message == "handle: 0") {
                m_Joining.Wait();
            }
        });
        m_Manager->RequestTransfer(std::move(request));
        m_Manager.reset();
    }
};

TEST_F(AgentShutdownBeforeTheWorkerStarts, TheTransferIsStillPerformed)
{
    Run(m_Client.MakeRequest(Deliver("h", "b")));
    EXPECT_THAT(m_Client.Events(), ElementsAre("header h", "data b", "complete true 200"));
}

TEST_F(AgentShutdownBeforeTheWorkerStarts, ATransferThatReachesItsWaitDoesNotWait)
{
    auto request = m_Client.MakeRequest(Deliver("h", "b"));
    request->fixedDelay = Forever;
    Run(std::move(request));
    EXPECT_THAT(
        m_Log.MessagesOf("m_PerformDataTransfer"),
        ElementsAre(" ", "wait before sending a request mode enabled",
                    "Start sleeping for: 9223372036854775807 milliseconds", "Sleep interrupted",
                    "Successfully download header size: 1", "Successfully download data size: 1"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("header h", "data b", "complete true 200"));
}

TEST_F(AgentShutdownBeforeTheWorkerStarts, ATransferThatReachesItsWaitIsNotAddedToTheTable)
{
    AsyncTransferAgentManagerPeer peer(*m_Manager);
    std::size_t sleepers = 1;
    auto request = m_Client.MakeRequest([&](const auto& detail) {
        sleepers = peer.SleeperCount();
        return Deliver("h", "b")(detail);
    });
    request->fixedDelay = Forever;
    Run(std::move(request));
    EXPECT_EQ(sleepers, 0U);
}

TEST_F(AgentShutdown, WaitsForAWorkerInItsCompleteCallback)
{
    Gate release;
    Gate completing;
    auto request = m_Client.MakeRequest(Deliver("h", "b"));
    request->completeCallback = [&](auto, void*) {
        completing.Open();
        release.Wait();
        m_Client.Add("completed");
    };
    m_Manager->RequestTransfer(std::move(request));
    ASSERT_TRUE(completing.Wait());
    const auto shutdown = Begin();
    release.Open();
    shutdown->Join();
    EXPECT_EQ(m_Client.Events().back(), "completed");
    const auto lines = m_Log.Summaries();
    EXPECT_THAT(lines, Not(Contains(StartsWith("I m_PerformTransferThread: Detaching"))));
}

TEST_F(AgentShutdown, RefusesARequestFromACallback)
{
    Gate completing;
    Gate release;
    auto request = m_Client.MakeRequest(Deliver("h", "b"));
    ITransferAgentManager& manager = *m_Manager;
    std::uint64_t second = 0;
    request->completeCallback = [&](auto, void*) {
        completing.Open();
        release.Wait();
        second = manager.RequestTransfer(m_Client.MakeRequest(Fail()));
    };
    m_Manager->RequestTransfer(std::move(request));
    ASSERT_TRUE(completing.Wait());
    const auto shutdown = Begin();
    release.Open();
    shutdown->Join();
    EXPECT_EQ(second, ITransferAgentManager::InvalidHandle);
    const auto lines = m_Log.Summaries();
    EXPECT_THAT(lines,
                Contains("W RequestTransfer: Transfer agent terminating, cancelling transfer"));
}

// Shutdown comes after what is wrong with the request itself, and before the number of transfers.
TEST_F(AgentShutdown, IsToldOfAValidRequestThoughAllPlacesAreTaken)
{
    Gate completing;
    Gate release;
    ITransferAgentManager& manager = *m_Manager;
    auto request = m_Client.MakeRequest(Deliver("h", "b"));
    request->completeCallback = [&](auto, void*) {
        completing.Open();
        release.Wait();
        auto invalid = m_Client.MakeRequest(Fail());
        invalid->headerCallback = nullptr;
        invalid->dataCallback = nullptr;
        manager.RequestTransfer(std::move(invalid));
        auto valid = m_Client.MakeRequest(Fail());
        valid->url = "late";
        manager.RequestTransfer(std::move(valid));
    };
    m_Manager->RequestTransfer(std::move(request));
    for (int count = 0; count < 3; ++count) {
        m_Manager->RequestTransfer(m_Client.MakeRequest([&](const auto&) {
            release.Wait();
            return MakeResult(true, 200);
        }));
    }
    ASSERT_TRUE(completing.Wait());
    const auto shutdown = Begin();
    release.Open();
    shutdown->Join();
    EXPECT_THAT(
        m_Log.SummariesOf("m_ValidateTransferConfig"),
        ElementsAre("E m_ValidateTransferConfig: neither data or header download requested"));
    EXPECT_THAT(m_Log.SummariesOf("RequestTransfer"),
                ElementsAre("D RequestTransfer: Url: u", "D RequestTransfer: Url: u",
                            "D RequestTransfer: Url: u", "D RequestTransfer: Url: u",
                            "D RequestTransfer: Url: late",
                            "W RequestTransfer: Transfer agent terminating, cancelling transfer"));
}

// A wait that began between the two would be one that nobody wakes.
TEST_F(AgentShutdown, RefusesRequestsBeforeItWakesTheFirstSleeper)
{
    ITransferAgentManager& manager = *m_Manager;
    std::uint64_t second = 0;
    m_Log.OnLine([&](const LogLine& line) {
        if (line.message == "Waking up sleeping thread with handle: 0") {
            second = manager.RequestTransfer(m_Client.MakeRequest(Fail()));
        }
    });
    auto request = m_Client.MakeRequest(Deliver("h", "b"));
    request->fixedDelay = Forever;
    m_Manager->RequestTransfer(std::move(request));
    ASSERT_TRUE(m_Log.WaitFor("Start sleeping for: 9223372036854775807 milliseconds"));
    m_Manager.reset();
    EXPECT_EQ(second, ITransferAgentManager::InvalidHandle);
}

TEST_F(AgentShutdown, ACancellationFromACallbackStillWorks)
{
    Gate running;
    Gate release;
    ITransferAgentManager& manager = *m_Manager;
    bool cancelled = false;
    m_Manager->RequestTransfer(m_Client.MakeRequest([&](const auto& detail) {
        running.Open();
        release.Wait();
        cancelled = manager.CancelTransfer(0);
        return Deliver("h", "b")(detail);
    }));
    ASSERT_TRUE(running.Wait());
    const auto shutdown = Begin();
    release.Open();
    shutdown->Join();
    EXPECT_TRUE(cancelled);
    EXPECT_THAT(m_Client.Events(), IsEmpty());
}

TEST_F(AgentShutdown, NamesAThreadThatCannotBeJoinedByTheIdentifierItWasFiledUnder)
{
    // Shared, as the detached thread may outlive the test.
    const auto filed = std::make_shared<Gate>();
    VORTAN_MW::UTILS::ScopedExceptionSafeThread thread([filed] { filed->Wait(); });
    const std::string id =
        AsyncTransferAgentManagerPeer(*m_Manager).FileDetachedThread(std::move(thread));
    m_Manager.reset();
    EXPECT_THAT(m_Log.Summaries(),
                ElementsAre("D ~AsyncTransferAgentManager:  ",
                            "D ~AsyncTransferAgentManager: number of threads: 1",
                            "I ~AsyncTransferAgentManager: thread not joinable: " + id));
    filed->Open();
}

TEST_F(AgentShutdown, RacesWithFinishingWorkersWithoutHarm)
{
    for (int round = 0; round < 200; ++round) {
        auto manager = AsyncTransferAgentManager::Create();
        RecordingClient client;
        auto request = client.MakeRequest(Deliver("h", "b"));
        request->fixedDelay = round % 2;
        manager->RequestTransfer(std::move(request));
        manager->RequestTransfer(client.MakeRequest(Fail()));
        manager.reset();
        EXPECT_EQ(client.Events().size(), 4U);
    }
}

using AgentShutdownDeathTest = AgentShutdown;

TEST_F(AgentShutdownDeathTest, AManagerDestroyedFromItsOwnCallbackEndsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            m_Log.OnLine(
                [](const LogLine& line) { std::fprintf(stderr, "%s\n", line.message.c_str()); });
            auto request = m_Client.MakeRequest(Deliver("h", "b"));
            request->completeCallback = [&](auto, void*) { m_Manager.reset(); };
            m_Manager->RequestTransfer(std::move(request));
            Gate().Wait();
        },
        "joining thread: ");
}

}  // namespace
