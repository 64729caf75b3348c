#include <gmock/gmock.h>

#include <system_error>

#include "AgentTestSupport.h"
#include "CaughtLog.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::AsyncTransferAgentManagerPeer;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;

// Drives the way from a handler's chunk to the client's callbacks, without a worker.
class AgentNotification : public testing::Test
{
protected:
    std::uint64_t FileJob(std::unique_ptr<RecordingClient::Request> request)
    {
        return m_Peer.CreateJob(std::move(*request));
    }
    std::unique_ptr<RecordingClient::Request> MakeRequest() { return m_Client.MakeRequest(Fail()); }
    bool Header(std::uint64_t handle, const std::string& text)
    {
        auto context = m_Peer.MakeContext(handle);
        return AsyncTransferAgentManagerPeer::HeaderCallback(MakeChunk(text), &context);
    }
    bool Body(std::uint64_t handle, const std::string& text)
    {
        auto context = m_Peer.MakeContext(handle);
        return AsyncTransferAgentManagerPeer::BodyCallback(MakeChunk(text), &context);
    }
    bool Complete(std::uint64_t handle, bool success)
    {
        auto lock = m_Peer.Hold();
        const bool known = m_Peer.NotifyComplete(lock, handle, MakeResult(success, 200));
        EXPECT_TRUE(lock.owns_lock());
        return known;
    }

    RecordingClient m_Client;
    std::unique_ptr<ITransferAgentManager> m_Manager = AsyncTransferAgentManager::Create();
    AsyncTransferAgentManagerPeer m_Peer{*m_Manager};
};

TEST_F(AgentNotification, BothCallbacksAreCalledForEachChunkHeaderFirstAndOneWithNull)
{
    const auto handle = FileJob(MakeRequest());
    EXPECT_TRUE(Header(handle, "ab"));
    EXPECT_TRUE(Body(handle, "xyz"));
    EXPECT_THAT(m_Client.Events(),
                ElementsAre("header ab", "data null", "header null", "data xyz"));
}

TEST_F(AgentNotification, AHeaderCallbackAloneGetsNullForBodyChunks)
{
    auto request = MakeRequest();
    request->dataCallback = nullptr;
    const auto handle = FileJob(std::move(request));
    EXPECT_TRUE(Header(handle, "ab"));
    EXPECT_TRUE(Body(handle, "xyz"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("header ab", "header null"));
}

TEST_F(AgentNotification, ADataCallbackAloneGetsNullForHeaderChunks)
{
    auto request = MakeRequest();
    request->headerCallback = nullptr;
    const auto handle = FileJob(std::move(request));
    EXPECT_TRUE(Header(handle, "ab"));
    EXPECT_TRUE(Body(handle, "xyz"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("data null", "data xyz"));
}

TEST_F(AgentNotification, TheUserContextReachesEveryCallbackUnchanged)
{
    int mine = 0;
    std::vector<void*> seen;
    auto request = MakeRequest();
    request->userContext = &mine;
    request->headerCallback = [&](auto, void* context) { seen.push_back(context); };
    request->dataCallback = [&](auto, void* context) { seen.push_back(context); };
    request->completeCallback = [&](auto, void* context) { seen.push_back(context); };
    const auto handle = FileJob(std::move(request));
    Header(handle, "a");
    Complete(handle, true);
    EXPECT_THAT(seen, ElementsAre(&mine, &mine, &mine));
}

TEST_F(AgentNotification, AChunkAfterCancellationReachesNobodyAndStopsTheHandler)
{
    const auto handle = FileJob(MakeRequest());
    EXPECT_TRUE(m_Manager->CancelTransfer(handle));
    const CaughtLog log;
    EXPECT_FALSE(Body(handle, "xyz"));
    EXPECT_FALSE(Header(handle, "ab"));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("E m_GetJob: job not found for:0", "E m_GetJob: job not found for:0"));
    EXPECT_THAT(m_Client.Events(), IsEmpty());
}

TEST_F(AgentNotification, ANullContextOrManagerStopsTheHandlerSilently)
{
    const CaughtLog log;
    EXPECT_FALSE(AsyncTransferAgentManagerPeer::HeaderCallback(MakeChunk("a"), nullptr));
    EXPECT_FALSE(AsyncTransferAgentManagerPeer::BodyCallback(MakeChunk("a"), nullptr));
    AsyncTransferAgentManagerPeer::Context context{0, nullptr};
    EXPECT_FALSE(AsyncTransferAgentManagerPeer::HeaderCallback(MakeChunk("a"), &context));
    EXPECT_FALSE(AsyncTransferAgentManagerPeer::BodyCallback(MakeChunk("a"), &context));
    EXPECT_THAT(log.Summaries(), IsEmpty());
}

TEST_F(AgentNotification, WithoutTheLockNobodyIsCalledAndTheTransferGoesOn)
{
    const auto handle = FileJob(MakeRequest());
    auto lock = m_Peer.Hold();
    lock.unlock();
    const CaughtLog log;
    EXPECT_TRUE(m_Peer.NotifyData(lock, handle, MakeChunk("a"), nullptr));
    EXPECT_TRUE(m_Peer.NotifyComplete(lock, handle, {}));
    EXPECT_THAT(m_Client.Events(), IsEmpty());
    ASSERT_EQ(log.Lines().size(), 2U);
    for (const LogLine& line : log.Lines()) {
        EXPECT_EQ(line.function, "AssertIsLocked");
        EXPECT_THAT(line.message, HasSubstr("mutex not locked! "));
        EXPECT_THAT(line.message, HasSubstr("AsyncTransferAgentManager.cpp"));
    }
}

TEST_F(AgentNotification, TheCompleteCallbackIsCalledOnceAndEndsAllOthers)
{
    const auto handle = FileJob(MakeRequest());
    EXPECT_TRUE(Complete(handle, true));
    EXPECT_TRUE(Complete(handle, false));
    EXPECT_TRUE(Body(handle, "late"));
    EXPECT_TRUE(Header(handle, "late"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("complete true 200"));
    EXPECT_EQ(m_Peer.JobCount(), 1U);  // removing it is the worker's business
}

TEST_F(AgentNotification, CompletionWithoutACallbackStillEndsTheDataCallbacks)
{
    auto request = MakeRequest();
    request->completeCallback = nullptr;
    const auto handle = FileJob(std::move(request));
    EXPECT_TRUE(Complete(handle, true));
    EXPECT_TRUE(Body(handle, "late"));
    EXPECT_THAT(m_Client.Events(), IsEmpty());
}

TEST_F(AgentNotification, CompletionOfARemovedJobCallsNobody)
{
    const auto handle = FileJob(MakeRequest());
    m_Manager->CancelTransfer(handle);
    EXPECT_FALSE(Complete(handle, true));
    EXPECT_THAT(m_Client.Events(), IsEmpty());
}

TEST_F(AgentNotification, CallbacksRunWithTheMutexFree)
{
    auto request = MakeRequest();
    std::vector<bool> cancelled;
    const auto cancelUnknown = [&](auto&&...) {
        cancelled.push_back(m_Manager->CancelTransfer(99));
    };
    request->headerCallback = cancelUnknown;
    request->dataCallback = cancelUnknown;
    request->completeCallback = cancelUnknown;
    const auto handle = FileJob(std::move(request));
    Header(handle, "a");
    Complete(handle, true);
    EXPECT_THAT(cancelled, ElementsAre(false, false, false));
}

TEST_F(AgentNotification, AJobCancelledInItsHeaderCallbackStillDeliversThatNotification)
{
    auto request = MakeRequest();
    std::uint64_t handle = 0;
    request->headerCallback = [&](auto, void*) { m_Manager->CancelTransfer(handle); };
    handle = FileJob(std::move(request));
    EXPECT_TRUE(Body(handle, "xyz"));
    EXPECT_FALSE(Body(handle, "more"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("data xyz"));
}

TEST_F(AgentNotification, AThrowingCallbackLeavesTheLockHeld)
{
    auto request = MakeRequest();
    request->dataCallback = [](auto, void*) { throw std::runtime_error("abc"); };
    request->completeCallback = [](auto, void*) { throw std::runtime_error("def"); };
    const auto handle = FileJob(std::move(request));
    auto lock = m_Peer.Hold();
    EXPECT_THROW(m_Peer.NotifyData(lock, handle, nullptr, MakeChunk("a")), std::runtime_error);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_THROW(m_Peer.NotifyComplete(lock, handle, {}), std::runtime_error);
    EXPECT_TRUE(lock.owns_lock());
}

TEST_F(AgentNotification, ACallbackThatLocksBehindTheAgentsBackIsReportedAsASystemError)
{
    auto request = MakeRequest();
    AsyncTransferAgentManagerPeer::Lock* held = nullptr;
    request->dataCallback = [&](auto, void*) { held->lock(); };
    const auto handle = FileJob(std::move(request));
    auto lock = m_Peer.Hold();
    held = &lock;
    EXPECT_THROW(m_Peer.NotifyData(lock, handle, nullptr, MakeChunk("a")), std::system_error);
}

// Somebody else holds the mutex from the client's call until the chunk is delivered.
TEST_F(AgentNotification, AChunkTakesTheMutexOnlyBeforeTheClientsCall)
{
    Gate held;
    Gate delivered;
    bool deliveredMeanwhile = false;
    std::thread holder;
    auto request = MakeRequest();
    request->headerCallback = nullptr;
    request->dataCallback = [&](auto, void*) {
        holder = std::thread([&] {
            const auto lock = m_Peer.Hold();
            held.Open();
            deliveredMeanwhile = delivered.Wait();
        });
        EXPECT_TRUE(held.Wait());
    };
    const auto handle = FileJob(std::move(request));
    EXPECT_TRUE(Body(handle, "a"));
    delivered.Open();
    holder.join();
    EXPECT_TRUE(deliveredMeanwhile);
}

// What a client's callable owns runs client code when it is destroyed; here it calls the agent,
// which would block for ever if the agent still held its mutex.
class OwnedByTheClient
{
public:
    OwnedByTheClient(ITransferAgentManager& agent, std::function<void()> onDestruction)
        : m_Agent(agent), m_OnDestruction(std::move(onDestruction))
    {}
    OwnedByTheClient(const OwnedByTheClient&) = delete;
    OwnedByTheClient& operator=(const OwnedByTheClient&) = delete;
    ~OwnedByTheClient()
    {
        m_Agent.CancelTransfer(99);
        m_OnDestruction();
    }

private:
    ITransferAgentManager& m_Agent;
    std::function<void()> m_OnDestruction;
};

TEST_F(AgentNotification, TheLastCopyOfACallbackIsDestroyedWithTheMutexFree)
{
    std::uint64_t handle = 0;
    auto request = MakeRequest();
    request->headerCallback = nullptr;
    request->dataCallback = [this, &handle,
                             owned = std::make_shared<OwnedByTheClient>(
                                 *m_Manager, [this] { m_Client.Add("destroyed"); })](auto, void*) {
        m_Manager->CancelTransfer(handle);
        m_Client.Add("cancelled");
    };
    handle = FileJob(std::move(request));
    EXPECT_TRUE(Body(handle, "a"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("cancelled", "destroyed"));
}

class OwningFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    explicit OwningFactory(std::shared_ptr<OwnedByTheClient> owned) : m_Owned(std::move(owned)) {}
    std::unique_ptr<ITransferHandler> Create() override { return nullptr; }

private:
    std::shared_ptr<OwnedByTheClient> m_Owned;
};

TEST_F(AgentNotification, CompletionDestroysWhatTheClientGaveWithTheMutexFree)
{
    const auto own = [this](const std::string& name) {
        return std::make_shared<OwnedByTheClient>(*m_Manager,
                                                  [this, name] { m_Client.Add(name + " gone"); });
    };
    auto request = MakeRequest();
    request->headerCallback = [owned = own("header")](auto, void*) {};
    request->dataCallback = [owned = own("data")](auto, void*) {};
    request->completeCallback = [this, owned = own("complete")](auto, void*) {
        m_Client.Add("complete");
    };
    request->handlerFactory = std::make_unique<OwningFactory>(own("factory"));
    const auto handle = FileJob(std::move(request));
    EXPECT_TRUE(Complete(handle, true));
    EXPECT_THAT(m_Client.Events(), ElementsAre("header gone", "data gone", "complete",
                                               "complete gone", "factory gone"));
}

TEST_F(AgentNotification, TheFactoryIsThereUntilTheCompleteCallbackReturns)
{
    auto owned = std::make_shared<OwnedByTheClient>(*m_Manager, [] {});
    const std::weak_ptr<OwnedByTheClient> watched = owned;
    auto request = MakeRequest();
    request->handlerFactory = std::make_unique<OwningFactory>(std::move(owned));
    std::uint64_t handle = 0;
    request->completeCallback = [&](auto, void*) {
        m_Manager->CancelTransfer(handle);
        m_Client.Add(watched.expired() ? "factory gone" : "factory there");
    };
    handle = FileJob(std::move(request));
    EXPECT_TRUE(Complete(handle, true));
    EXPECT_THAT(m_Client.Events(), ElementsAre("factory there"));
    EXPECT_TRUE(watched.expired());
}

// A factory that was destroyed with the mutex held would block here for ever.
TEST_F(AgentNotification, ACompleteCallbackThatThrowsLeavesTheFactoryToBeDestroyedWithoutTheMutex)
{
    auto request = MakeRequest();
    request->handlerFactory = std::make_unique<OwningFactory>(
        std::make_shared<OwnedByTheClient>(*m_Manager, [this] { m_Client.Add("factory gone"); }));
    request->completeCallback = [](auto, void*) { throw std::runtime_error("def"); };
    const auto handle = FileJob(std::move(request));
    auto lock = m_Peer.Hold();
    EXPECT_THROW(m_Peer.NotifyComplete(lock, handle, {}), std::runtime_error);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_THAT(m_Client.Events(), ElementsAre("factory gone"));
}

}  // namespace
