// Whole transfers through the agent and the libcurl handler.

#include <gmock/gmock.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>

#include "AsyncTransferAgentManager.h"
#include "CaughtLog.h"
#include "CurlEasyHandlerFactory.h"
#include "Gate.h"
#include "HttpExchange.h"
#include "IndexedBytes.h"
#include "ServerTest.h"

using ::testing::StartsWith;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;

namespace {

using BytesPtr = std::unique_ptr<ITransferHandler::Bytes>;

// A client that puts together what one transfer delivers. The worker writes what it holds: look at
// it when the transfer is over.
struct Client
{
    using Request = ITransferAgentManager::TransferConfiguration;

    std::unique_ptr<Request> MakeRequest(const Configuration& configuration, bool segmented)
    {
        auto request = std::make_unique<Request>();
        static_cast<Configuration&>(*request) = configuration;
        request->handlerFactory = std::make_unique<VORTAN_MW::CurlEasyHandlerFactory>();
        request->segmented = segmented;
        request->headerCallback = [this](const BytesPtr& chunk, void*) {
            Append(chunk, response.header);
        };
        request->dataCallback = [this](const BytesPtr& chunk, void*) {
            if (chunk && onFirstData) {
                std::exchange(onFirstData, nullptr)();
            }
            Append(chunk, response.body);
        };
        request->completeCallback = [this](const ITransferHandler::Result& result, void*) {
            response.success = result.success;
            response.code = result.httpCode ? *result.httpCode : -1;
            completed = true;
            over.Open();
        };
        return request;
    }

    static void Append(const BytesPtr& chunk, std::string& text)
    {
        if (chunk) {
            text.append(chunk->begin(), chunk->end());
        }
    }

    std::function<void()> onFirstData;
    Response response;
    std::atomic<bool> completed{false};
    Gate over;
};

class AgentOverHttp : public ServerTest<OddServer>
{
protected:
    // Destroys the manager, which waits for the workers.
    void ShutDown() { manager.reset(); }

    void TearDown() override
    {
        ShutDown();
        ServerTest::TearDown();
    }

    CaughtLog log;
    Client client;
    std::unique_ptr<ITransferAgentManager> manager = AsyncTransferAgentManager::Create();
};

class AgentModes : public AgentOverHttp, public ::testing::WithParamInterface<bool>
{
protected:
    static bool IsSegmented() { return GetParam(); }

    const Response& Transfer(const Configuration& configuration)
    {
        manager->RequestTransfer(client.MakeRequest(configuration, IsSegmented()));
        EXPECT_TRUE(client.over.Wait());
        return client.response;
    }
};

INSTANTIATE_TEST_SUITE_P(Mode, AgentModes, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& segmented) {
                             return segmented.param ? "Segmented" : "Plain";
                         });

TEST_P(AgentModes, ADownloadArrivesByteForByteAndCompletesWithItsStatus)
{
    const Response& response = Transfer(Request(Url("/bytes/" + std::to_string(LongLength))));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 200);
    EXPECT_THAT(response.header, StartsWith("HTTP/1.1 200 Status\r\n"));
    EXPECT_TRUE(response.body == IndexedText(LongLength));
}

TEST_P(AgentModes, AnUploadArrivesByteForByte)
{
    const std::string body = IndexedText(LongLength);
    const Response& response = Transfer(Request(Url("/mirror"), HttpMethod::EhttpPost, body));
    EXPECT_TRUE(response.success);
    EXPECT_TRUE(response.body == body);
}

TEST_P(AgentModes, AnErrorStatusCompletesWithFailureAndItsStatus)
{
    const Response& response = Transfer(Request(Url("/status/404")));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, 404);
    EXPECT_EQ(response.body, "");
}

TEST_P(AgentModes, APartOfABodyCompletesWithFailureAndOnlyStreamsHaveDeliveredIt)
{
    const Response& response = Transfer(Request(Url("/truncate/100")));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, 200);
    EXPECT_EQ(response.body, IsSegmented() ? IndexedText(99) : "");
}

TEST_P(AgentModes, AResetConnectionCompletesWithFailure)
{
    EXPECT_FALSE(Transfer(Request(Url("/reset/100"))).success);
}

TEST_P(AgentModes, FourTransfersAtOnceKeepTheirBytesApart)
{
    std::array<Client, 4> clients;
    const std::array<std::string, 4> bodies = {IndexedText(1), std::string(300000, 'b'),
                                               IndexedText(LongLength), std::string(70001, 'd')};
    for (std::size_t i = 0; i < clients.size(); ++i) {
        manager->RequestTransfer(clients[i].MakeRequest(
            Request(Url("/mirror"), HttpMethod::EhttpPut, bodies[i]), IsSegmented()));
    }
    for (std::size_t i = 0; i < clients.size(); ++i) {
        ASSERT_TRUE(clients[i].over.Wait());
        EXPECT_TRUE(clients[i].response.success);
        EXPECT_TRUE(clients[i].response.body == bodies[i]);
    }
    ShutDown();
}

// While it lives, threads are started with stacks of this size.
class StacksOf
{
public:
    explicit StacksOf(std::size_t size) : m_Former(Exchange(size)) {}
    ~StacksOf() { Exchange(m_Former); }
    StacksOf(const StacksOf&) = delete;
    StacksOf& operator=(const StacksOf&) = delete;

private:
    static std::size_t Exchange(std::size_t size)
    {
        std::size_t former = 0;
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_getstacksize(&attributes, &former);
        EXPECT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
        EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
        pthread_attr_destroy(&attributes);
        return former;
    }

    std::size_t m_Former;
};

// The least that is recommended to devices with small stacks.
TEST_P(AgentModes, AStackOf32KiBIsEnough)
{
#ifdef VORTAN_SANITIZED
    GTEST_SKIP() << "a sanitizer needs more stack";
#endif
    const StacksOf small(std::size_t{32} * 1024);
    Configuration configuration = Request(Url("/bytes/" + std::to_string(LongLength)));
    configuration.randomDelay.emplace();
    EXPECT_TRUE(Transfer(configuration).success);
    ShutDown();
}

// To look at the ends of each chunk is enough to see that bytes were lost, doubled or moved.
TEST_F(AgentOverHttp, AStreamOfFiveGiBArrivesWhole)
{
    constexpr std::uint64_t fiveGiB = std::uint64_t{5} << 30;
    std::uint64_t received = 0;
    bool inOrder = true;
    auto request = client.MakeRequest(Request(Url("/bytes/" + std::to_string(fiveGiB))), true);
    request->headerCallback = nullptr;
    request->dataCallback = [&](const BytesPtr& chunk, void*) {
        if (chunk) {
            inOrder = inOrder && chunk->front() == IndexedByte(received);
            received += chunk->size();
            inOrder = inOrder && chunk->back() == IndexedByte(received - 1);
        }
    };
    manager->RequestTransfer(std::move(request));
    EXPECT_TRUE(client.over.WaitFor(std::chrono::minutes(4)));
    EXPECT_TRUE(client.response.success);
    EXPECT_EQ(received, fiveGiB);
    EXPECT_TRUE(inOrder);
}

TEST_F(AgentOverHttp, AStreamCancelledBetweenChunksStopsAtTheNextOne)
{
    const std::string url = Url("/until-closed");
    Gate started;
    Gate goOn;
    client.onFirstData = [&] {
        started.Open();
        EXPECT_TRUE(goOn.Wait());
    };
    const std::uint64_t handle = manager->RequestTransfer(client.MakeRequest(Request(url), true));
    ASSERT_TRUE(started.Wait());
    EXPECT_TRUE(manager->CancelTransfer(handle));
    goOn.Open();
    EXPECT_TRUE(log.WaitFor("callback failed processing: " + url));
    ShutDown();
    const std::string& body = client.response.body;
    EXPECT_FALSE(body.empty());
    EXPECT_LE(body.size(), 16384U) << "more than the one chunk that was in delivery";
    EXPECT_FALSE(client.completed);
}

TEST_F(AgentOverHttp, AStreamCancelledFromItsOwnCallbackStopsAtTheNextChunk)
{
    const std::string url = Url("/until-closed");
    std::atomic<std::uint64_t> handle{ITransferAgentManager::InvalidHandle};
    Gate requested;
    client.onFirstData = [&] {
        EXPECT_TRUE(requested.Wait());
        EXPECT_TRUE(manager->CancelTransfer(handle));
    };
    handle = manager->RequestTransfer(client.MakeRequest(Request(url), true));
    requested.Open();
    EXPECT_TRUE(log.WaitFor("callback failed processing: " + url));
    ShutDown();
    EXPECT_FALSE(client.completed);
}

TEST_F(AgentOverHttp, ACancelledPlainTransferRunsToItsEndAndDeliversNothing)
{
    const std::uint64_t handle =
        manager->RequestTransfer(client.MakeRequest(Request(Url("/stall/plain")), false));
    EXPECT_TRUE(Fetch(Url("/await-stall/plain")).success);
    EXPECT_TRUE(manager->CancelTransfer(handle));
    EXPECT_TRUE(Fetch(Url("/release/plain")).success);
    ShutDown();
    EXPECT_EQ(client.response.header, "");
    EXPECT_EQ(client.response.body, "");
    EXPECT_FALSE(client.completed);
}

// Destroys the manager on a thread of its own, and knows when it waits for its workers.
class AgentShutdown : public AgentOverHttp
{
protected:
    AgentShutdown()
    {
        log.OnLine([this](const LogLine& line) {
            if (line.message.rfind("joining thread: ", 0) == 0) {
                joining.Open();
            }
        });
    }

    // Requests a stream and waits until it has delivered something.
    void StartStream(const std::string& path, const std::function<void()>& onFirstData)
    {
        Gate started;
        client.onFirstData = [&started, onFirstData] {
            started.Open();
            onFirstData();
        };
        manager->RequestTransfer(client.MakeRequest(Request(Url(path)), true));
        EXPECT_TRUE(started.Wait());
    }

    void StartShutDown()
    {
        m_Thread = std::thread([this] {
            ShutDown();
            isShutDown = true;
        });
        EXPECT_TRUE(joining.Wait());
    }

    void FinishShutDown() { m_Thread.join(); }

    Gate joining;
    std::atomic<bool> isShutDown{false};

private:
    std::thread m_Thread;
};

TEST_F(AgentShutdown, ItLetsARunningStreamReachItsEnd)
{
    Gate goOn;
    StartStream("/bytes/" + std::to_string(LongLength), [&] { EXPECT_TRUE(goOn.Wait()); });
    StartShutDown();
    goOn.Open();
    FinishShutDown();
    EXPECT_TRUE(client.completed);
    EXPECT_TRUE(client.response.success);
    EXPECT_TRUE(client.response.body == IndexedText(LongLength));
}

TEST_F(AgentShutdown, ItWaitsForASilentServerUntilThatClosesTheConnection)
{
    StartStream("/stall/shutdown", [] {});
    StartShutDown();
    EXPECT_FALSE(isShutDown);
    EXPECT_FALSE(client.completed);
    EXPECT_TRUE(Fetch(Url("/release/shutdown")).success);
    FinishShutDown();
    EXPECT_TRUE(client.completed);
    EXPECT_FALSE(client.response.success);
    EXPECT_EQ(client.response.code, 200);
    EXPECT_EQ(client.response.body, "1");
}

}  // namespace
