#include <gmock/gmock.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <future>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "CaughtLog.h"
#include "Gate.h"
#include "Utils.h"

namespace {

using testing::IsEmpty;
using VORTAN_MW::UTILS::ScopedExceptionSafeThread;

static_assert(!std::is_copy_constructible_v<ScopedExceptionSafeThread>, "it owns one thread");
static_assert(!std::is_copy_assignable_v<ScopedExceptionSafeThread>, "it owns one thread");
static_assert(std::is_nothrow_move_constructible_v<ScopedExceptionSafeThread>,
              "moved into a table");

class Agent
{
public:
    void Work(std::uint64_t handle) { m_Handle = handle; }
    std::uint64_t Handle() const { return m_Handle; }

private:
    std::uint64_t m_Handle = 0;
};

// In a process of its own: shows on standard error what is logged and, at last, that it ends.
template <typename Thrown>
void RunThreadThatThrows(const Thrown& thrown)
{
    CaughtLog log;
    log.OnLine(
        [](const LogLine& line) { std::cerr << line.file << ' ' << line.Summary() << std::endl; });
    std::set_terminate([] {
        std::cerr << "terminated" << std::endl;
        std::abort();
    });
    const ScopedExceptionSafeThread thread([&thrown] { throw thrown; });
}

class ExceptionOfAnotherKind : public std::exception
{
public:
    const char* what() const noexcept override { return "100% of another kind"; }
};

class ExceptionWithoutText : public std::exception
{
public:
    const char* what() const noexcept override { return nullptr; }
};

}  // namespace

TEST(ScopedExceptionSafeThread, TheFunctionRunsOnAThreadOfItsOwn)
{
    std::thread::id inside;
    std::thread::id owned;
    {
        ScopedExceptionSafeThread thread([&] { inside = std::this_thread::get_id(); });
        owned = thread.Thread().get_id();
    }
    EXPECT_EQ(inside, owned);
    EXPECT_NE(inside, std::this_thread::get_id());
}

TEST(ScopedExceptionSafeThread, AMemberFunctionIsCalledWithItsArguments)
{
    Agent agent;
    {
        const ScopedExceptionSafeThread thread(&Agent::Work, &agent, 18446744073709551615U);
    }
    EXPECT_EQ(agent.Handle(), 18446744073709551615U);
}

TEST(ScopedExceptionSafeThread, ArgumentsMayBeOnesThatCanOnlyBeMoved)
{
    int seen = 0;
    {
        const ScopedExceptionSafeThread thread(
            [&seen, own = std::make_unique<int>(4)](std::unique_ptr<int> argument) {
                seen = *own + *argument;
            },
            std::make_unique<int>(3));
    }
    EXPECT_EQ(seen, 7);
}

TEST(ScopedExceptionSafeThread, ArgumentsAreCopiedForTheThread)
{
    std::promise<void> changed;
    std::string argument = "as passed";
    std::string seen;
    {
        const ScopedExceptionSafeThread thread(
            [&](const std::string& text) {
                changed.get_future().wait();
                seen = text;
            },
            argument);
        argument = "changed later";
        changed.set_value();
    }
    EXPECT_EQ(seen, "as passed");
}

TEST(ScopedExceptionSafeThread, DestructionWaitsForTheEndOfTheFunction)
{
    std::promise<void> go;
    bool ended = false;
    {
        const ScopedExceptionSafeThread thread([&] {
            go.get_future().wait();
            ended = true;
        });
        EXPECT_FALSE(ended);
        go.set_value();
    }
    EXPECT_TRUE(ended);
}

TEST(ScopedExceptionSafeThread, AFunctionThatReturnsLogsNothing)
{
    const CaughtLog log;
    {
        const ScopedExceptionSafeThread thread([] {});
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

// Would wait for ever if the destructor did.
TEST(ScopedExceptionSafeThread, DestructionOfADetachedThreadsOwnerDoesNotBlock)
{
    // Shared, as the detached thread may outlive the test.
    const auto destroyed = std::make_shared<Gate>();
    const auto ending = std::make_shared<Gate>();
    {
        ScopedExceptionSafeThread thread([destroyed, ending] {
            destroyed->Wait();
            ending->Open();
        });
        thread.Thread().detach();
    }
    destroyed->Open();
    EXPECT_TRUE(ending->Wait());
}

TEST(ScopedExceptionSafeThread, DestructionAfterAJoinDoesNothing)
{
    ScopedExceptionSafeThread thread([] {});
    thread.Thread().join();
    EXPECT_FALSE(thread.Thread().joinable());
}

TEST(ScopedExceptionSafeThread, AnOwnerWithoutAThreadIsPossible)
{
    ScopedExceptionSafeThread thread;
    EXPECT_FALSE(thread.Thread().joinable());
}

TEST(ScopedExceptionSafeThread, MovingPassesTheThreadOn)
{
    std::promise<void> go;
    bool ended = false;
    ScopedExceptionSafeThread source([&] {
        go.get_future().wait();
        ended = true;
    });
    const std::thread& left = source.Thread();
    const std::thread::id id = left.get_id();
    {
        ScopedExceptionSafeThread target(std::move(source));
        EXPECT_FALSE(left.joinable());
        EXPECT_EQ(target.Thread().get_id(), id);
        go.set_value();
    }
    EXPECT_TRUE(ended);
}

TEST(ScopedExceptionSafeThread, AssignmentWaitsForTheThreadThatItReplaces)
{
    std::promise<void> go;
    bool ended = false;
    ScopedExceptionSafeThread thread([&] {
        go.get_future().wait();
        ended = true;
    });
    go.set_value();
    thread = ScopedExceptionSafeThread();
    EXPECT_TRUE(ended);
    EXPECT_FALSE(thread.Thread().joinable());
}

TEST(ScopedExceptionSafeThreadDeathTest, AnExceptionIsLoggedWithItsTextBeforeTheProcessEnds)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RunThreadThatThrows(std::runtime_error("abc")), testing::KilledBySignal(SIGABRT),
                "^Utils.h E Invoker: Unhandled exception\nUtils.h E Invoker: abc\nterminated\n");
}

TEST(ScopedExceptionSafeThreadDeathTest, AnExceptionOfTheClientsOwnClassIsLoggedWithItsText)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RunThreadThatThrows(ExceptionOfAnotherKind()), testing::KilledBySignal(SIGABRT),
                "^Utils.h E Invoker: Unhandled exception\n"
                "Utils.h E Invoker: 100% of another kind\nterminated\n");
}

TEST(ScopedExceptionSafeThreadDeathTest, AnExceptionWithoutTextIsLoggedAsAnEmptyLine)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RunThreadThatThrows(ExceptionWithoutText()), testing::KilledBySignal(SIGABRT),
                "^Utils.h E Invoker: Unhandled exception\nUtils.h E Invoker: \nterminated\n");
}

TEST(ScopedExceptionSafeThreadDeathTest, AnyOtherObjectIsLoggedBeforeTheProcessEnds)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RunThreadThatThrows(7), testing::KilledBySignal(SIGABRT),
                "^Utils.h E Invoker: Unhandled thrown object\nterminated\n");
}
