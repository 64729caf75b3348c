#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <limits>

#include "AgentTestSupport.h"
#include "CaughtLog.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::AsyncTransferAgentManagerPeer;
using VORTAN_MW::ITransferAgentManager;
using Request = RecordingClient::Request;

class AgentPacing : public testing::Test
{
protected:
    std::unique_ptr<Request> MakeRequest()
    {
        auto request = m_Client.MakeRequest(Deliver("h", "b"));
        request->headerCallback = nullptr;
        return request;
    }
    std::unique_ptr<Request> MakeFixed(std::int64_t milliseconds)
    {
        auto request = MakeRequest();
        request->fixedDelay = milliseconds;
        return request;
    }
    std::unique_ptr<Request> MakeRandom(std::uint32_t min, std::uint32_t max)
    {
        auto request = MakeRequest();
        request->randomDelay.emplace();
        request->randomDelay->min = min;
        request->randomDelay->max = max;
        return request;
    }
    // The lines of the pacing step, which are all at debug level, of a transfer that runs to its
    // end.
    std::vector<std::string> Run(std::unique_ptr<Request> request)
    {
        const CaughtLog log;
        m_Manager->RequestTransfer(std::move(request));
        EXPECT_TRUE(log.WaitFor("Cancelling transfer with handle: 0"));
        return PacingLines(log);
    }
    // The same for one that is cancelled in its sleep.
    std::vector<std::string> RunAndCancel(std::unique_ptr<Request> request,
                                          const std::string& milliseconds)
    {
        const CaughtLog log;
        const auto handle = m_Manager->RequestTransfer(std::move(request));
        EXPECT_TRUE(log.WaitFor("Start sleeping for: " + milliseconds + " milliseconds"));
        EXPECT_TRUE(m_Manager->CancelTransfer(handle));
        m_Manager.reset();
        return PacingLines(log);
    }
    static std::vector<std::string> PacingLines(const CaughtLog& log)
    {
        const std::string own = "D m_PerformDataTransfer: ";
        std::vector<std::string> lines;
        for (const std::string& line : log.Summaries()) {
            if (line.rfind(own, 0) == 0) {
                lines.push_back(line.substr(own.size()));
            }
        }
        EXPECT_EQ(lines.front(), " ");
        lines.erase(lines.begin());
        return lines;
    }

    RecordingClient m_Client;
    std::unique_ptr<ITransferAgentManager> m_Manager = AsyncTransferAgentManager::Create();
    AsyncTransferAgentManagerPeer m_Peer{*m_Manager};
};

TEST_F(AgentPacing, WithoutADelayNothingIsLoggedAndNobodySleeps)
{
    EXPECT_THAT(Run(MakeRequest()), IsEmpty());
    EXPECT_THAT(m_Client.Events(), ElementsAre("data b", "complete true 200"));
}

TEST_F(AgentPacing, AFixedDelayIsSleptBeforeTheRequestIsSent)
{
    EXPECT_THAT(Run(MakeFixed(20)),
                ElementsAre("wait before sending a request mode enabled",
                            "Start sleeping for: 20 milliseconds", "Finished sleeping"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("data b", "complete true 200"));
    EXPECT_EQ(m_Peer.SleeperCount(), 0U);
}

// However busy the machine is, a wait is never shorter.
TEST_F(AgentPacing, ADelayLastsAtLeastItsMilliseconds)
{
    const auto before = std::chrono::steady_clock::now();
    Run(MakeFixed(20));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
}

TEST_F(AgentPacing, AFixedDelayOfZeroOrLessEndsAtOnce)
{
    EXPECT_THAT(Run(MakeFixed(0)),
                ElementsAre("wait before sending a request mode enabled",
                            "Start sleeping for: 0 milliseconds", "Finished sleeping"));
    m_Peer.SetNextHandle(0);
    EXPECT_THAT(Run(MakeFixed(-1)), Contains("Finished sleeping"));
    m_Peer.SetNextHandle(0);
    EXPECT_THAT(
        Run(MakeFixed(std::numeric_limits<std::int64_t>::min())),
        ElementsAre("wait before sending a request mode enabled",
                    "Start sleeping for: -9223372036854775808 milliseconds", "Finished sleeping"));
}

TEST_F(AgentPacing, TheLongestFixedDelaySleepsUntilItIsCancelled)
{
    EXPECT_THAT(
        RunAndCancel(MakeFixed(Forever), std::to_string(Forever)),
        ElementsAre("wait before sending a request mode enabled",
                    "Start sleeping for: 9223372036854775807 milliseconds", "Sleep interrupted"));
}

TEST_F(AgentPacing, EqualBoundsOfARandomDelayGiveExactlyThatManySeconds)
{
    EXPECT_THAT(RunAndCancel(MakeRandom(4000000, 4000000), "4000000000"),
                ElementsAre("randomized request enabled",
                            "Start sleeping for: 4000000000 milliseconds", "Sleep interrupted"));
}

TEST_F(AgentPacing, TheDrawIsLoggedWithItsBoundsAndSeed)
{
    const CaughtLog log;
    m_Manager->RequestTransfer(MakeRandom(0, 0));
    EXPECT_TRUE(log.WaitFor("Finished sleeping"));
    const auto lines = log.Summaries();
    const auto draw = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.rfind("D RandomNumberGenerator: min: 0 max: 0 seed: ", 0) == 0;
    });
    ASSERT_NE(draw, lines.end());
    EXPECT_EQ(draw[1], "D m_PerformDataTransfer: randomized request enabled");
}

TEST_F(AgentPacing, TheRandomDelayInMillisecondsWrapsAt32Bits)
{
    const auto lines = RunAndCancel(MakeRandom(4294968, 4294968), "704");
    EXPECT_THAT(lines, Contains("Start sleeping for: 704 milliseconds"));
}

TEST_F(AgentPacing, TheRandomDelayWinsOverTheFixedOne)
{
    auto request = MakeRandom(0, 0);
    request->fixedDelay = Forever;
    EXPECT_THAT(Run(std::move(request)),
                ElementsAre("randomized request enabled", "Start sleeping for: 0 milliseconds",
                            "Finished sleeping"));
}

TEST_F(AgentPacing, BoundsInTheWrongOrderAreNotRefused)
{
    const CaughtLog log;
    EXPECT_EQ(m_Manager->RequestTransfer(MakeRandom(4294967295, 0)), 0U);
    // Two values are in the range: 4294967295 and, modulo 2^32, 0.
    const auto isOneOfTheTwo = [](const LogLine& line) {
        return line.message == "Start sleeping for: 4294966296 milliseconds" ||
               line.message == "Start sleeping for: 0 milliseconds";
    };
    EXPECT_TRUE(log.WaitForLine(isOneOfTheTwo));
    m_Manager->CancelTransfer(0);
}

TEST_F(AgentPacing, ACancelledSleeperStillSendsItsRequest)
{
    Gate sent;
    auto request = MakeFixed(Forever);
    request->handlerFactory = std::make_unique<ScriptedFactory>([&](const auto& detail) {
        sent.Open();
        return Deliver("h", "b")(detail);
    });
    const CaughtLog log;
    const auto handle = m_Manager->RequestTransfer(std::move(request));
    ASSERT_TRUE(log.WaitFor("Start sleeping for: 9223372036854775807 milliseconds"));
    EXPECT_TRUE(m_Manager->CancelTransfer(handle));
    EXPECT_TRUE(sent.Wait());
    m_Manager.reset();
    EXPECT_THAT(m_Client.Events(), IsEmpty());
    // Woken before the job is removed.
    const std::vector<std::string> expected = {
        "D CancelTransfer: Interrupting a thread that is sleeping",
        "D m_RemoveJob:  ", "I m_RemoveJob: Cancelling transfer with handle: 0"};
    const auto lines = log.Summaries();
    EXPECT_NE(std::search(lines.begin(), lines.end(), expected.begin(), expected.end()),
              lines.end());
}

TEST_F(AgentPacing, AnEntryExistsExactlyWhileItsWorkerSleeps)
{
    const CaughtLog log;
    const auto handle = m_Manager->RequestTransfer(MakeFixed(Forever));
    ASSERT_TRUE(log.WaitFor("Start sleeping for: 9223372036854775807 milliseconds"));
    EXPECT_EQ(m_Peer.SleeperCount(), 1U);
    m_Manager->CancelTransfer(handle);
    ASSERT_TRUE(log.WaitFor("Successfully download data size: 1"));
    EXPECT_EQ(m_Peer.SleeperCount(), 0U);
}

TEST_F(AgentPacing, AHandleThatSleepsAlreadyAbandonsTheTransfer)
{
    m_Peer.AddSleeper(0);
    auto request = MakeFixed(0);
    request->handlerFactory = std::make_unique<ScriptedFactory>([](const auto&) {
        ADD_FAILURE() << "the handler was called";
        return MakeResult(true, 200);
    });
    const CaughtLog log;
    m_Manager->RequestTransfer(std::move(request));
    ASSERT_TRUE(log.WaitFor("Cancelling transfer with handle: 0"));
    const auto lines = log.Summaries();
    EXPECT_THAT(
        lines,
        Contains("E m_PerformDataTransfer: Failed to create conditional variable for handle: 0"));
    EXPECT_EQ(log.Count("Start sleeping for: 0 milliseconds"), 0U);
    EXPECT_THAT(m_Client.Events(), ElementsAre("complete false null"));
    EXPECT_EQ(m_Peer.SleeperCount(), 1U);
}

TEST_F(AgentPacing, ASegmentedTransferNeverSleeps)
{
    auto request = MakeFixed(Forever);
    request->segmented = true;
    request->randomDelay.emplace();
    const CaughtLog log;
    m_Manager->RequestTransfer(std::move(request));
    ASSERT_TRUE(log.WaitFor("Cancelling transfer with handle: 0"));
    for (const std::string& line : log.Summaries()) {
        EXPECT_THAT(line, Not(testing::AnyOf(testing::HasSubstr("sleeping"),
                                             testing::HasSubstr("mode enabled"),
                                             testing::HasSubstr("randomized"),
                                             testing::HasSubstr("RandomNumberGenerator"))));
    }
    EXPECT_EQ(m_Client.Events().back(), "complete true 200");
}

// Tools search the log by file and function, so these stay when the code is divided differently.
TEST_F(AgentPacing, EachLineOfAPacedTransferNamesItsFileAndFunction)
{
    const CaughtLog log;
    auto request = MakeRandom(0, 0);
    request->headerCallback = [](auto&&...) {};
    const auto handle = m_Peer.CreateJob(std::move(*request));
    auto lock = m_Peer.Hold();
    const std::size_t before = log.Lines().size();
    m_Peer.PerformPlain(lock, handle);
    std::vector<std::string> origins;
    const std::vector<LogLine> lines = log.Lines();
    for (std::size_t i = before; i < lines.size(); ++i) {
        EXPECT_GT(lines[i].line, 0);
        origins.push_back(lines[i].file + ' ' + lines[i].function);
    }
    const std::string own = "AsyncTransferAgentManager.cpp m_PerformDataTransfer";
    EXPECT_THAT(origins, ElementsAre(own, "Utils.h RandomNumberGenerator", own, own, own,
                                     "ITransferHandler.cpp GetTransfer", own, own));
}

}  // namespace
