// What differs between machines with words of 32 and of 64 bits, and what is the same: both are
// stated here, and both kinds of machine run it.

#include <gmock/gmock.h>
#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <string>
#include <tuple>

#include "AgentTestSupport.h"
#include "CaughtLog.h"

namespace {

using std::chrono::seconds;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::AsyncTransferAgentManagerPeer;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using State = AsyncTransferAgentManagerPeer::ManagerState;

constexpr bool Is32Bit = sizeof(void*) == 4;
constexpr std::uint64_t Bit32 = std::uint64_t{1} << 32;

TEST(WordSize, ALongASizeAndAPointerHaveTheWidthOfAWord)
{
    constexpr std::size_t word = Is32Bit ? 4 : 8;
    EXPECT_EQ(sizeof(long), word);
    EXPECT_EQ(sizeof(std::size_t), word);
    EXPECT_EQ(sizeof(std::ptrdiff_t), word);
    EXPECT_EQ(sizeof(std::uintptr_t), word);
}

TEST(WordSize, WhatCountsFilesAndTimeHas64BitsOnBoth)
{
    EXPECT_EQ(sizeof(off_t), 8U);
    EXPECT_EQ(sizeof(std::time_t), 8U);
}

TEST(WordSize, TheStatedWidthsOfAConfigurationAreTheSameOnBoth)
{
    using Configuration = ITransferHandler::Configuration;
    EXPECT_EQ(sizeof(Configuration::HttpMethod), 4U);
    EXPECT_EQ(sizeof(Configuration::HttpVersion), 4U);
    EXPECT_EQ(sizeof(Configuration::RandomDelay), 8U);
    EXPECT_EQ(sizeof(decltype(Configuration::fixedDelay)::value_type), 8U);
}

TEST(WordSize, AThreadIsLoggedAsAnUnsignedWord)
{
    VORTAN_MW::UTILS::LogMessage message;
    message << std::thread::id(std::numeric_limits<pthread_t>::max());
    EXPECT_STREQ(message.Text(), Is32Bit ? "4294967295" : "18446744073709551615");
}

TEST(WordSize, TheInvalidHandleIsTheLargestSizeOn32BitsOnly)
{
    constexpr std::uint64_t largestSize = std::numeric_limits<std::size_t>::max();
    EXPECT_EQ(ITransferAgentManager::InvalidHandle == largestSize, Is32Bit);
    EXPECT_EQ(std::uint64_t{ITransferAgentManager::InvalidHandle}, Bit32 - 1);
}

TEST(WordSize, HandlesThatDifferAbove32BitsAreDifferentOnBoth)
{
    RecordingClient client;
    const auto manager = AsyncTransferAgentManager::Create();
    AsyncTransferAgentManagerPeer(*manager).SetNextHandle(Bit32 + 5);
    auto request = client.MakeRequest(Deliver("h", "b"));
    request->fixedDelay = Forever;
    const CaughtLog log;
    EXPECT_EQ(manager->RequestTransfer(std::move(request)), Bit32 + 5);
    EXPECT_FALSE(manager->CancelTransfer(5));
    EXPECT_TRUE(manager->CancelTransfer(Bit32 + 5));
}

// Seconds, and the milliseconds that are slept.
using Delay = std::tuple<std::uint32_t, std::string>;

class RandomDelayOnBothWordSizes : public testing::TestWithParam<Delay>
{
};

// The product would not wrap in a long where that has 64 bits.
INSTANTIATE_TEST_SUITE_P(Seconds, RandomDelayOnBothWordSizes,
                         testing::Values(Delay{4294967, "4294967000"}, Delay{4294968, "704"},
                                         Delay{8589935, "408"}, Delay{2147483648, "0"},
                                         Delay{4294967295, "4294966296"}),
                         [](const testing::TestParamInfo<Delay>& delay) {
                             return std::to_string(std::get<0>(delay.param));
                         });

TEST_P(RandomDelayOnBothWordSizes, ItWrapsAt32BitsOfMilliseconds)
{
    const auto& [drawn, milliseconds] = GetParam();
    RecordingClient client;
    const auto manager = AsyncTransferAgentManager::Create();
    auto request = client.MakeRequest(Deliver("h", "b"));
    request->randomDelay = ITransferHandler::Configuration::RandomDelay{drawn, drawn};
    const CaughtLog log;
    const std::uint64_t handle = manager->RequestTransfer(std::move(request));
    EXPECT_TRUE(log.WaitFor("Start sleeping for: " + milliseconds + " milliseconds"));
    manager->CancelTransfer(handle);
}

TEST(WordSize, AWaitEndsBeforeSecondsOf32BitsOverflow)
{
    EXPECT_EQ(State::LongestWait<std::int32_t>(seconds(0)), seconds(2147483646));
    EXPECT_EQ(State::LongestWait<std::int32_t>(seconds(2147483000)), seconds(646));
    EXPECT_EQ(State::LongestWait<std::int32_t>(seconds(2147483646)), seconds(0));
    EXPECT_EQ(State::LongestWait<std::int32_t>(seconds(2147483647)), seconds(0));
}

TEST(WordSize, AWaitEndsBeforeTheNanosecondsOfTheClockOverflow)
{
    EXPECT_EQ(State::LongestWait<std::int64_t>(seconds(0)), seconds(9223372035));
    EXPECT_EQ(State::LongestWait<std::int64_t>(seconds(9223372036)), seconds(0));
}

TEST(WordSize, AWaitIsClampedToTheClockOnBoth)
{
    EXPECT_EQ(State::ClampToClock(std::numeric_limits<std::int64_t>::min()), seconds(0));
    EXPECT_EQ(State::ClampToClock(4294967295), std::chrono::milliseconds(4294967295));
    // Beyond what 32 bits of seconds could count.
    EXPECT_GT(State::ClampToClock(Forever), seconds(Bit32));
}

}  // namespace
