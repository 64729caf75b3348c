// The kit fetches, keeps its connections, and stops as soon as it is told to.

#include <AsyncTransferAgentManager.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <thread>

#include "CaughtLog.h"
#include "Gate.h"
#include "IndexedBytes.h"
#include "KitClient.h"
#include "LoopbackPort.h"
#include "Patience.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using Then = ScriptedServer::Answer::Then;

namespace {

class KitTransfer : public ::testing::Test
{
protected:
    const CaughtLog log;
    KIT::HttpSession session{LocalPolicy()};
};

// How long a thread that has been told to stop may take. A loaded machine gets more time than the
// 100 ms that are promised; what is waited for takes minutes.
constexpr std::chrono::seconds Prompt(5);

// Keeps a listening port so busy that connecting to it takes for ever.
class FullBacklog
{
public:
    explicit FullBacklog(const LoopbackPort& port) : m_Address(port.Address())
    {
        for (int& each : m_Sockets) {
            each = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            static_cast<void>(
                connect(each, reinterpret_cast<const sockaddr*>(&m_Address), sizeof m_Address));
        }
        m_Before = m_CountWaiting();
    }
    FullBacklog(const FullBacklog&) = delete;
    FullBacklog& operator=(const FullBacklog&) = delete;
    ~FullBacklog()
    {
        for (const int each : m_Sockets) {
            close(each);
        }
    }

    // Until one more socket is connecting; false if none does in time.
    bool WaitForAnother() const
    {
        const auto end = std::chrono::steady_clock::now() + Patience;
        while (m_CountWaiting() <= m_Before) {
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

private:
    // Sockets that have sent a SYN to the port and have no answer, as the kernel lists them.
    int m_CountWaiting() const
    {
        char wanted[32];
        std::snprintf(wanted, sizeof wanted, ":%04X 02 ", ntohs(m_Address.sin_port));
        std::ifstream table("/proc/net/tcp");
        int count = 0;
        for (std::string line; std::getline(table, line);) {
            count += line.find(wanted) != std::string::npos ? 1 : 0;
        }
        return count;
    }

    const sockaddr_in m_Address;
    std::array<int, 4> m_Sockets = {};
    int m_Before = 0;
};

// Performs a transfer on another thread and stops it by destroying what made it.
class StoppedTransfer
{
public:
    explicit StoppedTransfer(KIT::HttpSession& session, const std::string& url)
    {
        KIT::TransferOptions options;
        options.SetObserver(m_Observer);
        m_Factory = session.MakeFactory(options);
        m_Thread = std::async(std::launch::async, [handler = m_Factory->Create(), url] {
            return handler
                ->GetTransfer(
                    Request(url), nullptr,
                    [](std::unique_ptr<ITransferHandler::Bytes>, void*) { return true; }, nullptr)
                .success;
        });
    }

    void DestroyFactory() { m_Factory.reset(); }

    // How long that takes.
    std::chrono::steady_clock::duration DestroyFactoryAndWait()
    {
        const auto begin = std::chrono::steady_clock::now();
        DestroyFactory();
        ExpectItToEndAsCancelled();
        return std::chrono::steady_clock::now() - begin;
    }

    void ExpectItToEndAsCancelled()
    {
        ASSERT_EQ(m_Thread.wait_for(Prompt), std::future_status::ready);
        EXPECT_FALSE(m_Thread.get());
        EXPECT_EQ(m_Observer->End(), KIT::Category::Cancelled);
    }

private:
    std::shared_ptr<RecordingObserver> m_Observer = std::make_shared<RecordingObserver>();
    std::unique_ptr<ITransferHandlerFactory> m_Factory;
    std::future<bool> m_Thread;
};

// One of several transfers, stopped when it is ready, is over as soon as is promised. On a loaded
// machine others may take longer.
void ExpectPromptStops(KIT::HttpSession& session, const std::string& url,
                       const std::function<bool()>& isReady)
{
    constexpr std::chrono::milliseconds promised(100);
    for (int turn = 0; turn < 10; ++turn) {
        StoppedTransfer transfer(session, url);
        ASSERT_TRUE(isReady());
        if (transfer.DestroyFactoryAndWait() <= promised) {
            return;
        }
    }
    ADD_FAILURE() << "no transfer was over within 100 ms";
}

}  // namespace

TEST_F(KitTransfer, DeliversHeaderAndBody)
{
    const std::string response = HttpResponse("HTTP/1.1 200 OK", IndexedText(LongLength), {"X: y"});
    ScriptedServer server({{response}});
    const Received received = Fetch(session, Request(server.Url("/a?b=c")));
    EXPECT_TRUE(received.success);
    EXPECT_EQ(received.status, 200);
    EXPECT_EQ(received.header + received.body, response);
    EXPECT_EQ(received.headerChunks, 1U);
    ASSERT_EQ(server.Requests().size(), 1U);
    EXPECT_EQ(server.Requests()[0].method, "GET");
    EXPECT_EQ(server.Requests()[0].target, "/a?b=c");
}

TEST_F(KitTransfer, KeepsItsConnection)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", "body")}});
    for (int turn = 0; turn < 5; ++turn) {
        EXPECT_TRUE(Fetch(session, Request(server.Url())).success);
    }
    EXPECT_EQ(server.CountOfConnections(), 1U);
}

TEST_F(KitTransfer, IsRepeatedWhereTheServerHasClosedAnIdleConnection)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", "body")}});
    for (int turn = 0; turn < 5; ++turn) {
        EXPECT_EQ(Fetch(session, Request(server.Url())).body, "body");
        server.CloseConnections();
    }
}

TEST_F(KitTransfer, StopsWhenItsFactoryIsDestroyedWhileTheServerIsSilent)
{
    ScriptedServer server({{"", Then::Stall}});
    std::size_t requests = 0;
    ExpectPromptStops(session, server.Url(), [&] { return server.WaitForRequests(++requests); });
}

TEST_F(KitTransfer, StopsWhenItsSessionIsDestroyed)
{
    ScriptedServer server({{"", Then::Stall}});
    auto own = std::make_unique<KIT::HttpSession>(LocalPolicy());
    StoppedTransfer transfer(*own, server.Url());
    ASSERT_TRUE(server.WaitForRequests(1));
    own.reset();
    transfer.ExpectItToEndAsCancelled();
}

TEST_F(KitTransfer, StopsWhileItWaitsForItsNextAttempt)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 503 Unavailable", "", {"Retry-After: 5"})}});
    StoppedTransfer transfer(session, server.Url());
    ASSERT_TRUE(server.WaitForRequests(1));
    transfer.DestroyFactory();
    transfer.ExpectItToEndAsCancelled();
    EXPECT_EQ(server.Requests().size(), 1U);
}

TEST_F(KitTransfer, StopsWhileItsConnectionIsNotAccepted)
{
    LoopbackPort port;
    port.Listen();
    const FullBacklog backlog(port);
    ExpectPromptStops(session, port.Url(), [&] { return backlog.WaitForAnother(); });
}

TEST_F(KitTransfer, StopsInATlsHandshakeThatTheServerDoesNotTakePartIn)
{
    ScriptedServer server({{Good}});  // waits for the end of a header
    KIT::HttpSession own(LocalPolicy().SetSchemes({"https"}));
    std::size_t connections = 0;
    ExpectPromptStops(own, "https://" + server.Authority() + "/", [&] {
        ++connections;
        const auto end = std::chrono::steady_clock::now() + Patience;
        while (server.CountOfConnections() < connections &&
               std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        return server.CountOfConnections() == connections;
    });
}

TEST_F(KitTransfer, FailsOnceItsSessionIsGone)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", "body")}});
    auto own = std::make_unique<KIT::HttpSession>(LocalPolicy());
    const auto factory = own->MakeFactory();
    own.reset();
    EXPECT_FALSE(
        factory->Create()->GetTransfer(Request(server.Url()), nullptr, nullptr, nullptr).success);
    EXPECT_TRUE(server.Requests().empty());
}

TEST_F(KitTransfer, ThatIsStoppedBeforeItBeginsSendsNothingLater)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", "body")}});
    EXPECT_TRUE(Fetch(session, Request(server.Url())).success);
    auto factory = session.MakeFactory();
    const auto handler = factory->Create();
    factory.reset();
    EXPECT_FALSE(handler->GetTransfer(Request(server.Url()), nullptr, nullptr, nullptr).success);
    EXPECT_TRUE(Fetch(session, Request(server.Url())).success);
    EXPECT_EQ(server.Requests().size(), 2U);
    EXPECT_EQ(server.CountOfConnections(), 1U);
}
