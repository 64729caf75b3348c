#include <gmock/gmock.h>

#include <system_error>

#include "AgentTestSupport.h"
#include "CaughtLog.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::AsyncTransferAgentManagerPeer;
using VORTAN_MW::ITransferAgentManager;

// Requests whose handlers wait until the test lets them end.
class AgentRequests : public testing::Test
{
protected:
    ~AgentRequests() override { m_Release.Open(); }

    std::unique_ptr<RecordingClient::Request> MakeBlockedRequest()
    {
        return m_Client.MakeRequest([this](const auto&) {
            m_Release.Wait();
            return MakeResult(true, 200);
        });
    }
    std::uint64_t Request(std::unique_ptr<RecordingClient::Request> request)
    {
        return m_Manager->RequestTransfer(std::move(request));
    }

    Gate m_Release;
    RecordingClient m_Client;
    std::unique_ptr<ITransferAgentManager> m_Manager = AsyncTransferAgentManager::Create();
    AsyncTransferAgentManagerPeer m_Peer{*m_Manager};
};

TEST_F(AgentRequests, HandlesCountFromZeroAndAreReturnedAtOnce)
{
    EXPECT_EQ(Request(MakeBlockedRequest()), 0U);
    EXPECT_EQ(Request(MakeBlockedRequest()), 1U);
    EXPECT_EQ(Request(MakeBlockedRequest()), 2U);
    EXPECT_EQ(m_Peer.JobCount(), 3U);
    EXPECT_EQ(m_Peer.ThreadCount(), 3U);
}

TEST_F(AgentRequests, ARequestIsValidatedWithTheMutexHeld)
{
    CaughtLog log;
    bool held = false;
    log.OnLine([&](const LogLine&) { held = m_Peer.IsHeld(); });
    EXPECT_EQ(Request(nullptr), ITransferAgentManager::InvalidHandle);
    EXPECT_EQ(log.Count("transfer configuration is empty"), 1U);
    EXPECT_TRUE(held);
}

TEST_F(AgentRequests, AcceptanceIsLoggedWithEachCallbackThatIsSet)
{
    const CaughtLog log;
    auto request = MakeBlockedRequest();
    request->headerCallback = nullptr;
    request->url = "http://a/b";
    Request(std::move(request));
    EXPECT_THAT(log.MessagesOf("RequestTransfer"), ElementsAre("Url: http://a/b"));
    EXPECT_THAT(log.MessagesOf("m_CreateJob"),
                ElementsAre("Requesting transfer for: http://a/b handle: 0",
                            "Registering data callback with handle: 0",
                            "Registering complete callback with handle: 0"));
    for (const LogLine& line : log.Lines()) {
        EXPECT_EQ(line.priority, line.function == "m_CreateJob" ? 4 : 3) << line.message;
    }
}

TEST_F(AgentRequests, TheFifthAtATimeIsRefusedAndLeavesNothingBehind)
{
    for (int count = 0; count < 4; ++count) {
        EXPECT_NE(Request(MakeBlockedRequest()), ITransferAgentManager::InvalidHandle);
    }
    auto fifth = MakeBlockedRequest();
    fifth->url = "fifth";
    auto owned = std::make_shared<int>();
    const std::weak_ptr<int> destroyed = owned;
    fifth->completeCallback = [owned = std::move(owned)](auto, void*) {};
    const CaughtLog log;
    EXPECT_EQ(Request(std::move(fifth)), ITransferAgentManager::InvalidHandle);
    EXPECT_THAT(log.SummariesOf("RequestTransfer"),
                ElementsAre("D RequestTransfer: Url: fifth",
                            "E RequestTransfer: Maximum number of parallel transfers reached: 4"));
    EXPECT_TRUE(destroyed.expired());
    EXPECT_EQ(m_Peer.JobCount(), 4U);
}

TEST_F(AgentRequests, ThePlaceOfAFinishedTransferIsFreeAgain)
{
    const CaughtLog log;
    for (std::uint64_t handle = 0; handle < 20; ++handle) {
        ASSERT_EQ(Request(m_Client.MakeRequest(Deliver("h", "b"))), handle);
        // The worker's last line; it holds the mutex until it has taken its leave.
        ASSERT_TRUE(log.WaitFor("Cancelling transfer with handle: " + std::to_string(handle)));
        EXPECT_EQ(m_Peer.ThreadCount(), 0U);
        EXPECT_EQ(m_Peer.JobCount(), 0U);
    }
}

TEST_F(AgentRequests, TheCounterWrapsAtTheInvalidHandle)
{
    m_Peer.SetNextHandle(4294967294);
    EXPECT_EQ(Request(MakeBlockedRequest()), 4294967294U);
    const CaughtLog log;
    EXPECT_EQ(Request(MakeBlockedRequest()), 0U);
    EXPECT_EQ(Request(MakeBlockedRequest()), 1U);
    const auto lines = log.Summaries();
    EXPECT_THAT(lines, Contains("W m_CreateJob: IP handle has wrapped around: "));
    EXPECT_EQ(log.Count("IP handle has wrapped around: "), 1U);
    EXPECT_THAT(log.MessagesOf("m_CreateJob").front(), "IP handle has wrapped around: ");
}

TEST_F(AgentRequests, AJobThatStillHasAWrappedHandleIsOverwritten)
{
    auto old = MakeBlockedRequest();
    old->url = "old";
    auto owned = std::make_shared<int>();
    const std::weak_ptr<int> destroyed = owned;
    old->completeCallback = [owned = std::move(owned)](auto, void*) {};
    EXPECT_EQ(m_Peer.CreateJob(std::move(*old)), 0U);
    m_Peer.SetNextHandle(ITransferAgentManager::InvalidHandle);
    auto request = MakeBlockedRequest();
    request->url = "later";
    EXPECT_EQ(Request(std::move(request)), 0U);
    EXPECT_TRUE(destroyed.expired());
    auto lock = m_Peer.Hold();
    EXPECT_EQ(m_Peer.GetJob(lock, 0).url, "later");
    EXPECT_EQ(m_Peer.GetJob(lock, 0).handle, 0U);
}

TEST_F(AgentRequests, AnUnknownHandleYieldsTheSharedInvalidJobWithDefaults)
{
    const CaughtLog log;
    auto lock = m_Peer.Hold();
    const auto& job = m_Peer.GetJob(lock, 5);
    EXPECT_EQ(&job, &m_Peer.GetJob(lock, 6));
    EXPECT_EQ(job.handle, ITransferAgentManager::InvalidHandle);
    EXPECT_TRUE(job.url.empty());
    EXPECT_TRUE(job.failOnError);
    EXPECT_FALSE(job.segmented);
    EXPECT_FALSE(job.handlerFactory);
    EXPECT_FALSE(job.headerCallback || job.dataCallback || job.completeCallback);
    EXPECT_EQ(job.userContext, nullptr);
    EXPECT_THAT(log.Summaries(),
                ElementsAre("E m_GetJob: job not found for:5", "E m_GetJob: job not found for:6"));
}

TEST_F(AgentRequests, AMemberCalledWithoutTheLockSaysWhereAndCarriesOn)
{
    auto lock = m_Peer.Hold();
    lock.unlock();
    const CaughtLog log;
    EXPECT_EQ(m_Peer.GetJob(lock, 5).handle, ITransferAgentManager::InvalidHandle);
    EXPECT_FALSE(m_Peer.RemoveJob(lock, 5));
    EXPECT_FALSE(m_Peer.PerformSegmented(lock, 5).success);
    std::size_t reports = 0;
    for (const LogLine& line : log.Lines()) {
        if (line.function == "AssertIsLocked") {
            ++reports;
            EXPECT_EQ(line.priority, 6);
            EXPECT_EQ(line.file, "LockableUtils.h");
            EXPECT_EQ(line.line, 45);
            // The path and the line number of the caller, run together.
            EXPECT_THAT(line.message,
                        testing::MatchesRegex(
                            "mutex not locked! .*/AsyncTransferAgentManager\\.cpp[0-9]+"));
        }
    }
    EXPECT_EQ(reports, 4U);
}

TEST_F(AgentRequests, AJobCarriesEveryFieldOfItsRequest)
{
    auto request = MakeBlockedRequest();
    int mine = 0;
    request->headers = {{"a", "b"}};
    request->requestBody = std::string("x\0y", 3);
    request->bodyParts = {{1, 2}};
    request->method = RecordingClient::Request::HttpMethod::EhttpPut;
    request->fixedDelay = 3;
    request->segmented = true;
    request->userContext = &mine;
    const auto handle = m_Peer.CreateJob(std::move(*request));
    auto lock = m_Peer.Hold();
    const auto& job = m_Peer.GetJob(lock, handle);
    EXPECT_EQ(job.handle, handle);
    EXPECT_EQ(job.url, "u");
    EXPECT_THAT(job.headers, ElementsAre(std::pair<std::string, std::string>("a", "b")));
    EXPECT_EQ(job.requestBody, std::string("x\0y", 3));
    EXPECT_THAT(job.bodyParts, ElementsAre(ElementsAre(1, 2)));
    EXPECT_EQ(job.method, RecordingClient::Request::HttpMethod::EhttpPut);
    EXPECT_EQ(job.fixedDelay.value(), 3);
    EXPECT_TRUE(job.segmented);
    EXPECT_TRUE(job.headerCallback && job.dataCallback && job.completeCallback);
    EXPECT_TRUE(job.handlerFactory);
    EXPECT_EQ(job.userContext, &mine);
}

TEST_F(AgentRequests, CancellingAnUnknownHandleDoesNothingAndReturnsFalse)
{
    const CaughtLog log;
    EXPECT_FALSE(m_Manager->CancelTransfer(12));
    EXPECT_FALSE(m_Manager->CancelTransfer(ITransferAgentManager::InvalidHandle));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D CancelTransfer: handle: 12", "D m_RemoveJob:  ",
                            "D CancelTransfer: handle: 4294967295", "D m_RemoveJob:  "));
}

TEST_F(AgentRequests, CancellingAFinishedTransferReturnsFalse)
{
    const CaughtLog log;
    const auto handle = Request(m_Client.MakeRequest(Deliver("h", "b")));
    ASSERT_TRUE(log.WaitFor("Cancelling transfer with handle: 0"));
    EXPECT_FALSE(m_Manager->CancelTransfer(handle));
}

TEST_F(AgentRequests, CancellingTwiceReturnsTrueThenFalse)
{
    const auto handle = Request(MakeBlockedRequest());
    const CaughtLog log;
    EXPECT_TRUE(m_Manager->CancelTransfer(handle));
    EXPECT_FALSE(m_Manager->CancelTransfer(handle));
    EXPECT_THAT(log.SummariesOf("CancelTransfer"),
                ElementsAre("D CancelTransfer: handle: 0", "D CancelTransfer: handle: 0"));
    EXPECT_THAT(log.SummariesOf("m_RemoveJob"),
                ElementsAre("D m_RemoveJob:  ", "I m_RemoveJob: Cancelling transfer with handle: 0",
                            "D m_RemoveJob:  "));
    EXPECT_EQ(m_Peer.JobCount(), 0U);
}

TEST_F(AgentRequests, ACancelledJobIsDestroyedBeforeTheCallReturnsAndWithTheMutexFree)
{
    auto request = MakeBlockedRequest();
    bool destroyed = false;
    std::shared_ptr<void> owned(this, [&](void*) {
        m_Manager->CancelTransfer(99);
        destroyed = true;
    });
    request->completeCallback = [owned = std::move(owned)](auto, void*) {};
    const auto handle = Request(std::move(request));
    EXPECT_TRUE(m_Manager->CancelTransfer(handle));
    EXPECT_TRUE(destroyed);
}

TEST_F(AgentRequests, WhenNoThreadCanBeStartedTheRequestLeavesNoTrace)
{
    auto owned = std::make_shared<int>();
    const std::weak_ptr<int> destroyed = owned;
    auto request = MakeBlockedRequest();
    request->completeCallback = [owned = std::move(owned)](auto, void*) {};
    {
        const NoThreadsCanStart scope;
        EXPECT_THROW(Request(std::move(request)), std::system_error);
    }
    EXPECT_TRUE(destroyed.expired());
    EXPECT_EQ(m_Peer.JobCount(), 0U);
    EXPECT_EQ(m_Peer.ThreadCount(), 0U);
    EXPECT_THAT(m_Client.Events(), IsEmpty());
    EXPECT_EQ(Request(MakeBlockedRequest()), 1U);
}

TEST_F(AgentRequests, WhenNoThreadCanBeStartedAnOverwrittenJobGetsItsContentsBack)
{
    auto old = MakeBlockedRequest();
    old->url = "old";
    m_Peer.CreateJob(std::move(*old));
    m_Peer.SetNextHandle(0);
    {
        const NoThreadsCanStart scope;
        EXPECT_THROW(Request(MakeBlockedRequest()), std::system_error);
    }
    auto lock = m_Peer.Hold();
    EXPECT_EQ(m_Peer.GetJob(lock, 0).url, "old");
    EXPECT_EQ(m_Peer.GetJob(lock, 0).handle, 0U);
}

TEST_F(AgentRequests, AJobRemovedBeforeItsWorkerStartsIsNotPerformed)
{
    const CaughtLog log;
    m_Peer.PerformTransferThread(3);
    EXPECT_THAT(m_Client.Events(), IsEmpty());
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D m_PerformTransferThread: handle: 3",
                            "E m_GetJob: job not found for:3", "E m_GetJob: job not found for:3",
                            "W m_PerformTransferThread:  Failed to remove thread " +
                                TextOf(std::this_thread::get_id()) + " associated with handle: 3"));
}

TEST_F(AgentRequests, AJobCancelledWhileItsWorkerWaitsForTheMutexIsNotPerformed)
{
    Gate waiting;
    CaughtLog log;
    // The worker is held at its first line, which it logs before it takes the mutex.
    log.OnLine([&](const LogLine& line) {
        if (line.message == "handle: 0" && line.function == "m_PerformTransferThread") {
            waiting.Wait();
        }
    });
    const auto handle = Request(MakeBlockedRequest());
    EXPECT_TRUE(m_Manager->CancelTransfer(handle));
    const std::string id = m_Peer.OnlyThread();
    waiting.Open();
    ASSERT_TRUE(log.WaitFor("Detaching thread id: " + id));
    EXPECT_EQ(m_Peer.ThreadCount(), 0U);
    m_Manager.reset();
    EXPECT_THAT(m_Client.Events(), IsEmpty());
    EXPECT_EQ(log.Count("job not found for:0"), 2U);
    EXPECT_THAT(log.MessagesOf("m_PerformTransferThread"),
                ElementsAre("handle: 0", "Detaching thread id: " + id));
}

TEST_F(AgentRequests, AWorkerThatWasNeverFiledWarnsAndStillRemovesItsJob)
{
    CaughtLog log;
    const auto handle = Request(MakeBlockedRequest());
    auto thread = m_Peer.TakeOnlyThread();
    const std::string id = TextOf(thread.Thread().get_id());
    m_Release.Open();
    thread.Thread().join();
    EXPECT_EQ(handle, 0U);
    const auto lines = log.Summaries();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "W m_PerformTransferThread:  Failed to remove thread " + id +
                                           " associated with handle: 0");
    EXPECT_EQ(lines.back(), "I m_PerformTransferThread: Cancelling transfer with handle: 0");
    EXPECT_EQ(m_Peer.JobCount(), 0U);
}

}  // namespace
