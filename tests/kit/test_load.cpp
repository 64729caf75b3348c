// Many transfers at once, of which some are stopped at any point, against a server that fails at
// random: each ends, and the session stays usable.

#include <gtest/gtest.h>

#include <future>
#include <random>

#include "CaughtLog.h"
#include "IndexedBytes.h"
#include "KitClient.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using Answer = ScriptedServer::Answer;
using Then = Answer::Then;

namespace {

constexpr std::size_t Length = 50021;

// Answers with the body, a part of it, a failure, or nothing.
class MoodyServer
{
public:
    Answer operator()(const ScriptedServer::Request& request)
    {
        const std::size_t first =
            request.Has("Range") ? std::stoul(request.Value("Range").substr(6)) : 0;
        const std::string rest = IndexedText(Length).substr(first);
        const std::string header =
            (first > 0 ? "HTTP/1.1 206 Part\r\nContent-Range: bytes " + std::to_string(first) +
                             "-" + std::to_string(Length - 1) + "/" + std::to_string(Length)
                       : std::string("HTTP/1.1 200 OK")) +
            "\r\nETag: \"a\"\r\nContent-Length: " + std::to_string(rest.size()) + "\r\n\r\n";
        switch (m_Random() % 8) {
            case 0:
                return {header + rest.substr(0, rest.size() / 2), Then::Close};
            case 1:
                return {header.substr(0, header.size() / 2), Then::Close};
            case 2:
                return {HttpResponse("HTTP/1.1 503 Busy", "bad"), Then::Keep};
            case 3:
                return {"", Then::Reset};
            default:
                return {header + rest, Then::Keep};
        }
    }

private:
    std::mt19937 m_Random{1};
};

// Ends as it will, but if it succeeds, with the whole body.
bool TransferOnce(KIT::HttpSession& session, const std::string& url, unsigned int microseconds)
{
    std::string body;
    auto factory = session.MakeFactory();
    auto over = std::async(std::launch::async, [&body, &url, handler = factory->Create()] {
        return handler
            ->GetTransfer(
                Request(url), nullptr,
                [&body](const std::unique_ptr<ITransferHandler::Bytes>& chunk, void*) {
                    body.append(chunk->begin(), chunk->end());
                    return true;
                },
                nullptr)
            .success;
    });
    if (microseconds > 0) {
        over.wait_for(std::chrono::microseconds(microseconds));
        factory.reset();
    }
    return !over.get() || body == IndexedText(Length);
}

}  // namespace

TEST(KitLoad, EndsEachTransferWithTheWholeBodyOrAFailure)
{
    const CaughtLog log;
    ScriptedServer server{MoodyServer()};
    KIT::HttpSession session(LocalPolicy().SetRetryBudget(100000).SetAttempts(20));
    std::array<std::thread, 4> threads;
    std::atomic<int> mistakes{0};
    for (std::size_t n = 0; n < threads.size(); ++n) {
        threads[n] = std::thread([&, n] {
            std::mt19937 random(static_cast<unsigned int>(n));
            for (int turn = 0; turn < 50; ++turn) {
                const bool isStopped = random() % 2 == 0;
                const auto time = static_cast<unsigned int>(isStopped ? random() % 10000 : 0);
                mistakes += TransferOnce(session, server.Url(), time) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mistakes, 0);
    EXPECT_TRUE(TransferOnce(session, server.Url(), 0));
}
