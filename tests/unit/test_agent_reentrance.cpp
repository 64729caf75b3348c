#include <gmock/gmock.h>

#include <algorithm>

#include "AgentTestSupport.h"
#include "CaughtLog.h"

namespace {

using testing::ElementsAre;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using Request = RecordingClient::Request;

enum class From
{
    Header,
    Data,
    Complete
};

// Calls back into the agent from inside each of the three callbacks, in both modes.
class AgentReentrance : public testing::TestWithParam<std::tuple<From, bool>>
{
protected:
    // A request whose callback under test runs action at its first call with a chunk.
    std::unique_ptr<Request> MakeRequest(std::function<void()> action)
    {
        const auto [from, segmented] = GetParam();
        auto request = m_Client.MakeRequest(Deliver("h", "b"));
        request->segmented = segmented;
        const auto actOnChunk = [action](const std::unique_ptr<ITransferHandler::Bytes>& chunk,
                                         void*) {
            if (chunk) {
                action();
            }
        };
        switch (from) {
            case From::Header:
                request->headerCallback = actOnChunk;
                break;
            case From::Data:
                request->dataCallback = actOnChunk;
                break;
            case From::Complete:
                request->completeCallback = [action](auto, void*) { action(); };
                break;
        }
        return request;
    }

    RecordingClient m_Client;
    RecordingClient m_Second;
    std::unique_ptr<ITransferAgentManager> m_Manager = AsyncTransferAgentManager::Create();
};

std::string NameOf(const testing::TestParamInfo<std::tuple<From, bool>>& tested)
{
    const auto [from, segmented] = tested.param;
    const std::string callback = from == From::Header ? "Header"
                                 : from == From::Data ? "Data"
                                                      : "Complete";
    return callback + (segmented ? "Segmented" : "Plain");
}

INSTANTIATE_TEST_SUITE_P(Callbacks, AgentReentrance,
                         testing::Combine(testing::Values(From::Header, From::Data, From::Complete),
                                          testing::Bool()),
                         NameOf);

TEST_P(AgentReentrance, ARequestFromACallbackIsAccepted)
{
    std::uint64_t second = ITransferAgentManager::InvalidHandle;
    m_Manager->RequestTransfer(MakeRequest(
        [&] { second = m_Manager->RequestTransfer(m_Second.MakeRequest(Deliver("x", "y"))); }));
    EXPECT_TRUE(m_Second.WaitForCompletion());
    m_Manager.reset();
    EXPECT_EQ(second, 1U);
    EXPECT_THAT(m_Second.Events(), ElementsAre("header x", "data y", "complete true 200"));
}

TEST_P(AgentReentrance, ACallbackThatCancelsItsOwnTransferEndsIt)
{
    const CaughtLog log;
    bool cancelled = false;
    Gate called;
    m_Manager->RequestTransfer(MakeRequest([&] {
        cancelled = m_Manager->CancelTransfer(0);
        m_Client.Add("cancelled");
        called.Open();
    }));
    ASSERT_TRUE(called.Wait());
    m_Manager.reset();
    EXPECT_TRUE(cancelled);
    EXPECT_EQ(log.Count("Cancelling transfer with handle: 0"), 1U);
    const auto events = m_Client.Events();
    EXPECT_THAT(events, testing::Not(testing::Contains(testing::StartsWith("complete"))));
    EXPECT_EQ(std::count(events.begin(), events.end(), "cancelled"), 1);
}

TEST_P(AgentReentrance, ACallbackMayCancelAnotherTransfer)
{
    Gate otherRuns;
    Gate otherMayEnd;
    m_Manager->RequestTransfer(m_Second.MakeRequest([&](const auto& detail) {
        otherRuns.Open();
        otherMayEnd.Wait();
        return Deliver("x", "y")(detail);
    }));
    ASSERT_TRUE(otherRuns.Wait());
    bool cancelled = false;
    m_Manager->RequestTransfer(MakeRequest([&] {
        cancelled = m_Manager->CancelTransfer(0);
        otherMayEnd.Open();
    }));
    ASSERT_TRUE(otherMayEnd.Wait());
    m_Manager.reset();
    EXPECT_TRUE(cancelled);
    EXPECT_THAT(m_Second.Events(), testing::IsEmpty());
}

}  // namespace
