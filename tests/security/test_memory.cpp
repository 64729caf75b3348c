// What a server can make a transfer take of the memory.

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <utility>

#include "CurlEasyHandlerFactory.h"
#include "SecurityTest.h"

using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;

namespace {

using Bytes = ITransferHandler::Bytes;
using BytesPtr = std::unique_ptr<Bytes>;

constexpr std::size_t MiB = std::size_t{1024} * 1024;

// From here on the process may take so much more address space, and not any more.
void LimitMemory(std::size_t more)
{
    std::ifstream statistics("/proc/self/statm");
    rlim_t pages = 0;
    statistics >> pages;
    rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + more;
    setrlimit(RLIMIT_AS, &limit);
}

}  // namespace

TEST_F(Security, ASmallCompressedBodyBecomesAnySize)
{
    const Response response = Fetch(Odd().Url("/gzip-bomb/32"));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.body.size(), 32 * MiB);
    EXPECT_GT(response.body.size(), 1000 * std::stoul(response.Value("Content-Length")));
}

TEST_F(Security, WhereMemoryEndsTheProcessEnds)
{
#ifdef VORTAN_SANITIZED
    GTEST_SKIP() << "a sanitizer takes more addresses than can be limited";
#endif
    const auto fetch = [] {
        LimitMemory(256 * MiB);
        auto agent = VORTAN_MW::AsyncTransferAgentManager::Create();
        auto request = std::make_unique<VORTAN_MW::ITransferAgentManager::TransferConfiguration>();
        request->url = Odd().Url("/gzip-bomb/512");
        request->handlerFactory = std::make_unique<VORTAN_MW::CurlEasyHandlerFactory>();
        request->dataCallback = [](std::unique_ptr<Bytes>, void*) {};
        agent->RequestTransfer(std::move(request));
        agent.reset();
        std::_Exit(EXIT_SUCCESS);
    };
    EXPECT_EXIT(fetch(), ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(Security, TrailersAreKeptUntilTheClientCancels)
{
    const std::size_t before = ResidentBytes();
    std::size_t after = 0;
    log.OnLine([&](const LogLine& line) {
        if (line.message == "Cancelling transfer with handle: 0") {
            after = ResidentBytes();
        }
    });
    auto agent = VORTAN_MW::AsyncTransferAgentManager::Create();
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = Odd().Url("/trailers-forever");
    request->handlerFactory = std::make_unique<VORTAN_MW::CurlEasyHandlerFactory>();
    request->segmented = true;
    //! [count]
    constexpr std::size_t most = 6000000;
    std::size_t received = 0;
    std::promise<std::uint64_t> promised;
    const std::shared_future<std::uint64_t> handle = promised.get_future().share();
    const auto count = [&, manager = agent.get()](const BytesPtr& chunk, void*) {
        received += chunk ? chunk->size() : 0;
        if (received > most) {
            manager->CancelTransfer(handle.get());  // which waits until the handle is known
        }
    };
    request->headerCallback = count;
    request->dataCallback = count;
    promised.set_value(agent->RequestTransfer(std::move(request)));
    //! [count]
    agent.reset();
    EXPECT_GT(received, most);
    EXPECT_LT(received, most + 100) << "the next line ends a cancelled transfer";
    EXPECT_GT(after - before, most);
}

TEST_F(Security, AnAnnouncedLengthTakesAddressSpace)
{
    constexpr std::size_t announced = 1024 * MiB;
    const auto capacityAfter = [](std::size_t sent) {
        const std::string path = std::to_string(announced) + "/" + std::to_string(sent);
        Bytes body;
        VORTAN_MW::CurlEasyHandlerFactory().Create()->GetTransfer(
            Request(Odd().Url("/length/" + path)), boost::none, boost::optional<Bytes&>(body));
        EXPECT_EQ(body.size(), sent);
        return body.capacity();
    };
    const std::size_t before = ResidentBytes();
    EXPECT_EQ(capacityAfter(1), 16 * MiB);
    EXPECT_EQ(capacityAfter(17 * MiB), 128 * MiB);
    EXPECT_LT(ResidentBytes() - before, 64 * MiB);
}
