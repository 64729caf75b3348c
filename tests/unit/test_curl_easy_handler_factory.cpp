// The process-wide initialisation of libcurl. What happens once in a process is looked at in
// processes of their own.

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "CurlDouble.h"
#include "CurlEasyHandler.h"
#include "CurlEasyHandlerFactory.h"

using ::testing::ExitedWithCode;
using ::testing::MatchesRegex;
using VORTAN_MW::CurlEasyHandlerFactory;

namespace {

class CurlHandlerFactory : public ::testing::Test
{
protected:
    CurlHandlerFactory() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

void TellInits()
{
    std::fprintf(stderr, "%d inits\n", CurlGlobalInits());
}

// In the orderly way, in which libcurl is cleaned up. No other thread is left.
[[noreturn]] void EndProcess()
{
    std::exit(0);  // NOLINT(concurrency-mt-unsafe)
}

void CreateTwice()
{
    TellInits();
    CurlEasyHandlerFactory().Create();
    TellInits();
    CurlEasyHandlerFactory().Create();
    TellInits();
    EndProcess();
}

void CreateOnManyThreads()
{
    std::array<std::thread, 8> threads;
    for (std::thread& thread : threads) {
        thread = std::thread([] { CurlEasyHandlerFactory().Create(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    TellInits();
    EndProcess();
}

void CreateNothing()
{
    const CurlEasyHandlerFactory factory;
    TellInits();
    EndProcess();
}

TEST_F(CurlHandlerFactory, TheFirstCreateOfTheProcessInitialisesLibcurlAndItsExitCleansUp)
{
    EXPECT_EXIT(CreateTwice(), ExitedWithCode(0),
                MatchesRegex("0 inits\n1 inits\n1 inits\ncurl_global_cleanup\n"));
}

TEST_F(CurlHandlerFactory, ThreadsThatCreateAtOnceInitialiseLibcurlOnce)
{
    EXPECT_EXIT(CreateOnManyThreads(), ExitedWithCode(0),
                MatchesRegex("1 inits\ncurl_global_cleanup\n"));
}

TEST_F(CurlHandlerFactory, AFactoryThatCreatesNothingLeavesLibcurlAlone)
{
    EXPECT_EXIT(CreateNothing(), ExitedWithCode(0), MatchesRegex("0 inits\n"));
}

TEST_F(CurlHandlerFactory, EachCreateReturnsALibcurlHandlerOfItsOwn)
{
    CurlEasyHandlerFactory factory;
    const auto first = factory.Create();
    const auto second = factory.Create();
    EXPECT_NE(dynamic_cast<VORTAN_MW::CurlEasyHandler*>(first.get()), nullptr);
    EXPECT_NE(dynamic_cast<VORTAN_MW::CurlEasyHandler*>(second.get()), nullptr);
    EXPECT_NE(first, second);
}

}  // namespace
