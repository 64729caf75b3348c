#include <gmock/gmock.h>

#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "CaughtLog.h"
#include "Utils.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VORTAN_MW::UTILS::ScopedAction;

const std::string executing = "D ~ScopedAction: Executing action...";
const std::string notExecuting = "D ~ScopedAction: Not executing action...";

}  // namespace

TEST(ScopedAction, AnArmedActionRunsOnceAtTheEndOfItsScope)
{
    const CaughtLog log;
    int runs = 0;
    {
        const ScopedAction action([&] { ++runs; });
        EXPECT_EQ(runs, 0);
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
    EXPECT_EQ(runs, 1);
    EXPECT_THAT(log.Summaries(), ElementsAre(executing));
    EXPECT_EQ(log.Lines().front().file, "Utils.h");
}

TEST(ScopedAction, TheLineIsLoggedBeforeTheActionRuns)
{
    const CaughtLog log;
    std::vector<std::string> seen;
    {
        const ScopedAction action([&] { seen = log.Summaries(); });
    }
    EXPECT_THAT(seen, ElementsAre(executing));
}

TEST(ScopedAction, ADisarmedActionIsNotRun)
{
    const CaughtLog log;
    bool ran = false;
    {
        ScopedAction action([&] { ran = true; });
        action.Disarm();
    }
    EXPECT_FALSE(ran);
    EXPECT_THAT(log.Summaries(), ElementsAre(notExecuting));
}

TEST(ScopedAction, AnExceptionThatLeavesTheScopeRunsIt)
{
    bool ran = false;
    EXPECT_THROW(
        {
            const ScopedAction action([&] { ran = true; });
            throw 1;
        },
        int);
    EXPECT_TRUE(ran);
}

TEST(ScopedAction, ACopyOfAnArmedActionRunsItAgain)
{
    const CaughtLog log;
    int runs = 0;
    {
        const ScopedAction action([&] { ++runs; });
        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): its destruction is the use.
        const ScopedAction copy(action);
    }
    EXPECT_EQ(runs, 2);
    EXPECT_THAT(log.Summaries(), ElementsAre(executing, executing));
}

TEST(ScopedAction, AssignmentCopiesTheActionAndLeavesTheSourceArmed)
{
    const CaughtLog log;
    int runs = 0;
    int replacedRuns = 0;
    {
        const ScopedAction source([&] { ++runs; });
        ScopedAction target([&] { ++replacedRuns; });
        target = source;
    }
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(replacedRuns, 0);
    EXPECT_THAT(log.Summaries(), ElementsAre(executing, executing));
}

TEST(ScopedAction, ACopyIsArmedAsItsSourceWasThen)
{
    const CaughtLog log;
    int runs = 0;
    {
        ScopedAction source([&] { ++runs; });
        const ScopedAction earlyCopy(source);
        source.Disarm();
        const ScopedAction lateCopy(source);
        ScopedAction assigned([&] { ++runs; });
        assigned = source;
    }
    EXPECT_EQ(runs, 1);
    EXPECT_THAT(log.Summaries(), ElementsAre(notExecuting, notExecuting, executing, notExecuting));
}

TEST(ScopedAction, TheActionIsDestroyedWithItsOwner)
{
    const auto captured = std::make_shared<int>();
    {
        const ScopedAction armed([captured] {});
        ScopedAction disarmed([captured] {});
        disarmed.Disarm();
        EXPECT_EQ(captured.use_count(), 3);
    }
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(ScopedAction, AnEmptyActionThatIsDisarmedIsHarmless)
{
    const CaughtLog log;
    {
        ScopedAction action{std::function<void()>()};
        action.Disarm();
    }
    EXPECT_THAT(log.Summaries(), ElementsAre(notExecuting));
}

TEST(ScopedActionDeathTest, AnEmptyActionThatIsDueEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto endOfScope = [] {
        CaughtLog log;
        log.OnLine([](const LogLine& line) { std::cerr << line.Summary() << std::endl; });
        std::set_terminate([] {
            try {
                std::rethrow_exception(std::current_exception());
            } catch (const std::bad_function_call&) {
                std::cerr << "terminated by a bad call" << std::endl;
            }
            std::abort();
        });
        const ScopedAction action{std::function<void()>()};
    };
    EXPECT_EXIT(endOfScope(), testing::KilledBySignal(SIGABRT),
                "^D ~ScopedAction: Executing action...\nterminated by a bad call\n");
}
