#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "AgentTestSupport.h"
#include "CaughtLog.h"
#include "FullConfiguration.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::AsyncTransferAgentManagerPeer;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using Request = RecordingClient::Request;

// Whole transfers, from the request to the worker's last line.
class AgentExecution : public testing::Test
{
protected:
    // Requests, waits until the worker has taken its leave, and returns the lines that it logged
    // between its first line and its leave.
    std::vector<std::string> Run(std::unique_ptr<Request> request)
    {
        const CaughtLog log;
        const auto handle = m_Manager->RequestTransfer(std::move(request));
        EXPECT_NE(handle, ITransferAgentManager::InvalidHandle);
        EXPECT_TRUE(log.WaitFor("Cancelling transfer with handle: " + std::to_string(handle)));
        std::vector<std::string> lines = log.Summaries();
        const auto first =
            std::find(lines.begin(), lines.end(),
                      "D m_PerformTransferThread: handle: " + std::to_string(handle));
        EXPECT_NE(first, lines.end());
        lines.erase(lines.begin(), first + 1);
        EXPECT_GE(lines.size(), 2U);
        EXPECT_EQ(lines.back(), "I m_PerformTransferThread: Cancelling transfer with handle: " +
                                    std::to_string(handle));
        lines.pop_back();
        EXPECT_THAT(lines.back(), StartsWith("I m_PerformTransferThread: Detaching thread id: "));
        lines.pop_back();
        return lines;
    }

    RecordingClient m_Client;
    std::unique_ptr<ITransferAgentManager> m_Manager = AsyncTransferAgentManager::Create();
    AsyncTransferAgentManagerPeer m_Peer{*m_Manager};
};

TEST_F(AgentExecution, APlainTransferDeliversBothBuffersInOneNotification)
{
    EXPECT_THAT(Run(m_Client.MakeRequest(Deliver("ab", "xyz"))),
                ElementsAre("D m_PerformDataTransfer:  ", "D GetTransfer:  ",
                            "I m_PerformDataTransfer: Successfully download header size: 2",
                            "I m_PerformDataTransfer: Successfully download data size: 3"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("header ab", "data xyz", "complete true 200"));
}

TEST_F(AgentExecution, ATransferLogsItsStepsInOrderFromTheRequestToItsLeave)
{
    const CaughtLog log;
    m_Manager->RequestTransfer(m_Client.MakeRequest(Deliver("ab", "xyz")));
    ASSERT_TRUE(log.WaitFor("Cancelling transfer with handle: 0"));
    auto lines = log.Summaries();
    ASSERT_EQ(lines.size(), 12U);
    EXPECT_THAT(lines[10], StartsWith("I m_PerformTransferThread: Detaching thread id: "));
    lines.erase(lines.begin() + 10);
    EXPECT_THAT(lines,
                ElementsAre("D RequestTransfer: Url: u",
                            "I m_CreateJob: Requesting transfer for: u handle: 0",
                            "I m_CreateJob: Registering header callback with handle: 0",
                            "I m_CreateJob: Registering data callback with handle: 0",
                            "I m_CreateJob: Registering complete callback with handle: 0",
                            "D m_PerformTransferThread: handle: 0",
                            "D m_PerformDataTransfer:  ", "D GetTransfer:  ",
                            "I m_PerformDataTransfer: Successfully download header size: 2",
                            "I m_PerformDataTransfer: Successfully download data size: 3",
                            "I m_PerformTransferThread: Cancelling transfer with handle: 0"));
}

TEST_F(AgentExecution, APlainHeaderTransferAsksForTheHeaderOnly)
{
    auto request = m_Client.MakeRequest([](const ITransferHandler::TransferDetail& detail) {
        EXPECT_FALSE(detail.dataBuffer);
        return Deliver("ab", "xyz")(detail);
    });
    request->dataCallback = nullptr;
    EXPECT_THAT(Run(std::move(request)),
                ElementsAre("D m_PerformDataTransfer:  ", "D GetTransfer:  ",
                            "I m_PerformDataTransfer: Successfully download header size: 2"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("header ab", "complete true 200"));
}

TEST_F(AgentExecution, APlainBodyTransferAsksForTheBodyOnly)
{
    auto request = m_Client.MakeRequest([](const ITransferHandler::TransferDetail& detail) {
        EXPECT_FALSE(detail.headerBuffer);
        return Deliver("ab", "xyz")(detail);
    });
    request->headerCallback = nullptr;
    EXPECT_THAT(Run(std::move(request)),
                ElementsAre("D m_PerformDataTransfer:  ", "D GetTransfer:  ",
                            "I m_PerformDataTransfer: Successfully download data size: 3"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("data xyz", "complete true 200"));
}

TEST_F(AgentExecution, AFailedHeaderTransferNotifiesWithNull)
{
    auto request = m_Client.MakeRequest(Fail());
    request->dataCallback = nullptr;
    EXPECT_THAT(Run(std::move(request)),
                ElementsAre("D m_PerformDataTransfer:  ", "D GetTransfer:  ",
                            "I m_PerformDataTransfer: Failed download header/data handle: 0"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("header null", "complete false 404"));
}

TEST_F(AgentExecution, AFailedBodyTransferNotifiesWithNull)
{
    auto request = m_Client.MakeRequest(Fail());
    request->headerCallback = nullptr;
    EXPECT_THAT(Run(std::move(request)),
                ElementsAre("D m_PerformDataTransfer:  ", "D GetTransfer:  ",
                            "I m_PerformDataTransfer: Failed download header/data handle: 0"));
    EXPECT_THAT(m_Client.Events(), ElementsAre("data null", "complete false 404"));
}

TEST_F(AgentExecution, AFailedTransferOfBothNotifiesNobodyBeforeCompletion)
{
    EXPECT_THAT(Run(m_Client.MakeRequest(Fail())),
                ElementsAre("D m_PerformDataTransfer:  ", "D GetTransfer:  "));
    EXPECT_THAT(m_Client.Events(), ElementsAre("complete false 404"));
}

TEST_F(AgentExecution, AFailedTransferDiscardsWhatHadArrived)
{
    auto request = m_Client.MakeRequest([](const ITransferHandler::TransferDetail& detail) {
        detail.dataBuffer->assign(10, 1);
        return MakeResult(false, 0);
    });
    request->headerCallback = nullptr;
    Run(std::move(request));
    EXPECT_THAT(m_Client.Events(), ElementsAre("data null", "complete false 0"));
}

TEST_F(AgentExecution, AJobWithoutDataCallbacksMakesNoRequest)
{
    auto request = m_Client.MakeRequest([](const auto&) {
        ADD_FAILURE() << "the handler was called";
        return MakeResult(true, 200);
    });
    request->headerCallback = nullptr;
    request->dataCallback = nullptr;
    const auto handle = m_Peer.CreateJob(std::move(*request));
    const CaughtLog log;
    m_Peer.PerformTransferThread(handle);
    EXPECT_EQ(log.Count("Failed download header/data handle: 0"), 1U);
    EXPECT_THAT(m_Client.Events(), ElementsAre("complete false null"));
}

TEST_F(AgentExecution, AJobCancelledDuringAPlainTransferFailsAndKeepsItsStatus)
{
    const auto handle = m_Peer.CreateJob(std::move(*m_Client.MakeRequest([&](const auto& detail) {
        EXPECT_TRUE(m_Manager->CancelTransfer(0));
        return Deliver("ab", "xyz")(detail);
    })));
    auto lock = m_Peer.Hold();
    const auto result = m_Peer.PerformPlain(lock, handle);
    EXPECT_FALSE(result.success);
    ASSERT_TRUE(result.httpCode);
    EXPECT_EQ(*result.httpCode, 200);
    EXPECT_THAT(m_Client.Events(), IsEmpty());
}

// A reused handle can bring a worker to a job whose factory another worker has just used up.
TEST_F(AgentExecution, AJobWithoutFactoryFailsWithOneLine)
{
    auto request = m_Client.MakeRequest(Fail());
    request->handlerFactory = nullptr;
    const auto handle = m_Peer.CreateJob(std::move(*request));
    const CaughtLog log;
    auto lock = m_Peer.Hold();
    EXPECT_FALSE(m_Peer.PerformPlain(lock, handle).success);
    EXPECT_EQ(log.Summaries().back(),
              "E m_CreateHandler: Handler factory returned no handler for handle: 0");
}

TEST_F(AgentExecution, AnUnknownHandleFailsThePlainTransferWithALine)
{
    const CaughtLog log;
    auto lock = m_Peer.Hold();
    const auto result = m_Peer.PerformPlain(lock, 3);
    EXPECT_FALSE(result.success);
    EXPECT_FALSE(result.httpCode);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D m_PerformDataTransfer:  ", "E m_GetJob: job not found for:3",
                            "E m_PerformDataTransfer: Handle 3 doesn't match the jobInfo"));
}

TEST_F(AgentExecution, AnUnknownHandleFailsTheSegmentedTransferSilently)
{
    const CaughtLog log;
    auto lock = m_Peer.Hold();
    EXPECT_FALSE(m_Peer.PerformSegmented(lock, 3).success);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_THAT(log.Summaries(), ElementsAre("E m_GetJob: job not found for:3"));
}

TEST_F(AgentExecution, ASegmentedTransferHandsOnEachChunkAndLogsNoSizes)
{
    auto request = m_Client.MakeRequest([](const ITransferHandler::TransferDetail& detail) {
        EXPECT_FALSE(detail.headerBuffer);
        EXPECT_FALSE(detail.dataBuffer);
        EXPECT_TRUE(detail.headerCallback(MakeChunk("h"), detail.userData));
        EXPECT_TRUE(detail.dataCallback(MakeChunk("1"), detail.userData));
        EXPECT_TRUE(detail.dataCallback(MakeChunk("2"), detail.userData));
        return MakeResult(true, 206);
    });
    request->segmented = true;
    EXPECT_THAT(Run(std::move(request)), ElementsAre("D GetTransfer:  "));
    EXPECT_THAT(m_Client.Events(), ElementsAre("header h", "data null", "header null", "data 1",
                                               "header null", "data 2", "complete true 206"));
}

TEST_F(AgentExecution, ASegmentedTransferAlwaysHandsBothTrampolinesToTheHandler)
{
    auto request = m_Client.MakeRequest([](const ITransferHandler::TransferDetail& detail) {
        EXPECT_TRUE(detail.headerCallback(MakeChunk("h"), detail.userData));
        EXPECT_TRUE(detail.dataCallback(MakeChunk("1"), detail.userData));
        return MakeResult(true, 200);
    });
    request->segmented = true;
    request->headerCallback = nullptr;
    Run(std::move(request));
    EXPECT_THAT(m_Client.Events(), ElementsAre("data null", "data 1", "complete true 200"));
}

class AgentExecutionInBothModes : public AgentExecution, public testing::WithParamInterface<bool>
{
protected:
    std::unique_ptr<Request> MakeRequest(HandlerScript script)
    {
        auto request = m_Client.MakeRequest(std::move(script));
        request->segmented = GetParam();
        return request;
    }
};

INSTANTIATE_TEST_SUITE_P(Modes, AgentExecutionInBothModes, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "Segmented" : "Plain"; });

TEST_P(AgentExecutionInBothModes, TheHandlerSeesTheWholeConfiguration)
{
    ITransferHandler::Configuration full = FullConfiguration();
    full.randomDelay->min = 0;  // so as not to wait
    full.randomDelay->max = 0;
    auto request = MakeRequest([&](const ITransferHandler::TransferDetail& detail) {
        ExpectSame(detail, full);
        return MakeResult(true, 200);
    });
    static_cast<ITransferHandler::Configuration&>(*request) = full;
    Run(std::move(request));
    EXPECT_EQ(m_Client.Events().back(), "complete true 200");
}

// A body may be larger than what else the device has left.
TEST_P(AgentExecutionInBothModes, TheRequestBodyReachesTheHandlerWithoutACopy)
{
    const void* seen = nullptr;
    auto request = MakeRequest([&](const ITransferHandler::TransferDetail& detail) {
        seen = detail.requestBody.data();
        return MakeResult(true, 200);
    });
    request->method = ITransferHandler::Configuration::HttpMethod::EhttpPut;
    request->requestBody.assign(1000, 'a');
    const void* const body = request->requestBody.data();
    Run(std::move(request));
    EXPECT_EQ(seen, body);
}

TEST_P(AgentExecutionInBothModes, TheHandlersEntryIsLoggedAsForADirectCaller)
{
    const CaughtLog log;
    const auto handler = ScriptedFactory(Fail()).Create();
    if (GetParam()) {
        handler->GetTransfer({}, nullptr, nullptr, nullptr);
    } else {
        handler->GetTransfer({}, boost::none, boost::none);
    }
    m_Manager->RequestTransfer(MakeRequest(Fail()));
    ASSERT_TRUE(log.WaitFor("Cancelling transfer with handle: 0"));
    std::vector<std::string> entries;
    for (const LogLine& line : log.Lines()) {
        if (line.function == "GetTransfer") {
            entries.push_back(line.file + ':' + std::to_string(line.line) + ' ' + line.Summary());
        }
    }
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0], entries[1]);
}

TEST_P(AgentExecutionInBothModes, AFactoryThatMakesNoHandlerFailsTheTransferWithOneLine)
{
    auto request = MakeRequest(Fail());
    request->handlerFactory = std::make_unique<EmptyFactory>();
    auto lines = Run(std::move(request));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "E m_CreateHandler: Handler factory returned no handler for handle: 0");
    EXPECT_THAT(m_Client.Events(), ElementsAre("complete false null"));
}

TEST_P(AgentExecutionInBothModes, AJobCancelledDuringTheTransferGetsNoFurtherCallback)
{
    Gate running;
    Gate cancelled;
    const CaughtLog log;
    const auto handle =
        m_Manager->RequestTransfer(MakeRequest([&](const ITransferHandler::TransferDetail& detail) {
            running.Open();
            cancelled.Wait();
            return Deliver("ab", "xyz")(detail);
        }));
    ASSERT_TRUE(running.Wait());
    EXPECT_TRUE(m_Manager->CancelTransfer(handle));
    cancelled.Open();
    m_Manager.reset();
    EXPECT_THAT(m_Client.Events(), IsEmpty());
    EXPECT_EQ(log.Count("Cancelling transfer with handle: 0"), 1U);
    // Once for the data, or the chunk that is refused, and once for the result.
    EXPECT_EQ(log.Count("job not found for:0"), 2U);
}

TEST_P(AgentExecutionInBothModes, CallbacksRunOnTheWorkersThread)
{
    std::vector<std::thread::id> seen;
    const auto record = [&](auto&&...) { seen.push_back(std::this_thread::get_id()); };
    auto request = MakeRequest([&](const ITransferHandler::TransferDetail& detail) {
        record();
        return Deliver("ab", "xyz")(detail);
    });
    request->headerCallback = record;
    request->completeCallback = record;
    Run(std::move(request));
    ASSERT_GE(seen.size(), 3U);
    EXPECT_NE(seen.front(), std::this_thread::get_id());
    EXPECT_EQ(std::count(seen.begin(), seen.end(), seen.front()),
              static_cast<std::ptrdiff_t>(seen.size()));
}

TEST_P(AgentExecutionInBothModes, TheRequestIsOverForTheClientBeforeItsWorkerTakesItsLeave)
{
    CaughtLog log;
    auto owned = std::make_shared<int>();
    const std::weak_ptr<int> alive = owned;
    auto request = MakeRequest(
        [owned, deliver = Deliver("ab", "xyz")](const auto& detail) { return deliver(detail); });
    bool completed = false;
    request->completeCallback = [&, owned = std::move(owned)](auto, void*) { completed = true; };
    bool checked = false;
    log.OnLine([&](const LogLine& line) {
        if (line.message.rfind("Detaching thread id: ", 0) == 0) {
            EXPECT_TRUE(completed);
            EXPECT_TRUE(alive.expired());
            checked = true;
        }
    });
    m_Manager->RequestTransfer(std::move(request));
    EXPECT_TRUE(log.WaitFor("Cancelling transfer with handle: 0"));
    EXPECT_TRUE(checked);
}

TEST_P(AgentExecutionInBothModes, TheHandlerIsMadeAndDestroyedWithTheMutexHeldAndWorksWithout)
{
    class Handler : public ITransferHandler
    {
    public:
        explicit Handler(AsyncTransferAgentManagerPeer peer) : m_Peer(peer) {}
        ~Handler() override { EXPECT_TRUE(m_Peer.IsHeld()); }
        Result DoTransfer(const TransferDetail&) const override
        {
            EXPECT_FALSE(m_Peer.IsHeld());
            return MakeResult(true, 200);
        }

    private:
        AsyncTransferAgentManagerPeer m_Peer;
    };
    class Factory : public VORTAN_MW::ITransferHandlerFactory
    {
    public:
        explicit Factory(AsyncTransferAgentManagerPeer peer) : m_Peer(peer) {}
        std::unique_ptr<ITransferHandler> Create() override
        {
            EXPECT_TRUE(m_Peer.IsHeld());
            return std::make_unique<Handler>(m_Peer);
        }

    private:
        AsyncTransferAgentManagerPeer m_Peer;
    };
    auto request = MakeRequest(Fail());
    request->handlerFactory = std::make_unique<Factory>(m_Peer);
    Run(std::move(request));
    EXPECT_EQ(m_Client.Events().back(), "complete true 200");
}

using AgentExecutionDeathTest = AgentExecution;

// The lines are printed by the child, so that the expectation can see them.
void PrintLines(CaughtLog& log)
{
    log.OnLine([](const LogLine& line) { std::fprintf(stderr, "%s\n", line.Summary().c_str()); });
}

TEST_F(AgentExecutionDeathTest, AnExceptionFromAHandlerIsLoggedAndEndsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            CaughtLog log;
            PrintLines(log);
            m_Manager->RequestTransfer(m_Client.MakeRequest(
                [](const auto&) -> ITransferHandler::Result { throw std::runtime_error("abc"); }));
            m_Client.WaitForCompletion();
        },
        "E Invoker: Unhandled exception\nE Invoker: abc\n");
}

TEST_F(AgentExecutionDeathTest, AnExceptionFromACallbackIsLoggedAndEndsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            CaughtLog log;
            PrintLines(log);
            auto request = m_Client.MakeRequest(Deliver("ab", "xyz"));
            request->completeCallback = [](auto, void*) { throw 7; };
            m_Manager->RequestTransfer(std::move(request));
            Gate().Wait();
        },
        "E Invoker: Unhandled thrown object\n");
}

}  // namespace
