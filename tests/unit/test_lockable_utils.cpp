#include <gmock/gmock.h>

#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>

#include "CaughtLog.h"
#include "LockableUtils.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using VORTAN_MW::UTILS::AssertIsLocked;
using VORTAN_MW::UTILS::AssertIsLockedAt;
using VORTAN_MW::UTILS::ScopedUnlock;

static_assert(!std::is_copy_constructible_v<ScopedUnlock>, "one release, one lock");
static_assert(!std::is_copy_assignable_v<ScopedUnlock>, "one release, one lock");

// Calls function on another thread.
template <typename Function>
auto Elsewhere(Function function)
{
    return std::async(std::launch::async, function).get();
}

bool SomebodyHolds(std::mutex& mutex)
{
    return Elsewhere([&] {
        const std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
        return !lock.owns_lock();
    });
}

// The condition that a call reports, or none.
template <typename Function>
std::error_code ErrorOf(Function function)
{
    try {
        function();
    } catch (const std::system_error& error) {
        return error.code();
    }
    return {};
}

}  // namespace

TEST(AssertIsLocked, ALockThatHoldsItsMutexIsLockedAndNothingIsLogged)
{
    const CaughtLog log;
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(AssertIsLocked(lock, "caller"));
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(AssertIsLocked, ADeferredLockIsToldWithItsCallerAndStaysAsItIs)
{
    const CaughtLog log;
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex, std::defer_lock);
    EXPECT_FALSE(AssertIsLocked(lock, "/folder/File.cpp123"));
    EXPECT_FALSE(lock.owns_lock());
    EXPECT_FALSE(SomebodyHolds(mutex));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("E AssertIsLocked: mutex not locked! /folder/File.cpp123"));
}

TEST(AssertIsLocked, ALockWithoutAMutexIsNotLocked)
{
    const CaughtLog log;
    std::unique_lock<std::mutex> lock;
    EXPECT_FALSE(AssertIsLocked(lock, "caller"));
    EXPECT_THAT(log.Summaries(), ElementsAre("E AssertIsLocked: mutex not locked! caller"));
}

TEST(AssertIsLocked, AConstantLockIsTestedInTheSameWay)
{
    const CaughtLog log;
    std::mutex mutex;
    const std::unique_lock<std::mutex> held(mutex);
    EXPECT_TRUE(AssertIsLocked(held, "held"));
    EXPECT_THAT(log.Lines(), IsEmpty());
    std::mutex other;
    const std::unique_lock<std::mutex> deferred(other, std::defer_lock);
    EXPECT_FALSE(AssertIsLocked(deferred, "deferred"));
    EXPECT_FALSE(SomebodyHolds(other));
    EXPECT_THAT(log.Summaries(), ElementsAre("E AssertIsLocked: mutex not locked! deferred"));
}

TEST(AssertIsLocked, AFreeMutexIsToldAndStaysLockedByTheCaller)
{
    const CaughtLog log;
    std::mutex mutex;
    EXPECT_FALSE(AssertIsLocked(mutex, "caller"));
    EXPECT_TRUE(SomebodyHolds(mutex));
    mutex.unlock();
    EXPECT_THAT(log.Summaries(), ElementsAre("E AssertIsLocked: mutex not locked! caller"));
}

TEST(AssertIsLocked, AMutexThatAnotherThreadHoldsIsLockedAndIsNotTouched)
{
    const CaughtLog log;
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(Elsewhere([&] { return AssertIsLocked(mutex, "caller"); }));
    EXPECT_TRUE(SomebodyHolds(mutex));
    lock.unlock();
    EXPECT_FALSE(SomebodyHolds(mutex));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(AssertIsLocked, ItsErrorComesFromItsOwnPlaceNotTheCallers)
{
    const CaughtLog log;
    std::unique_lock<std::mutex> lock;
    AssertIsLocked(lock, "caller");
    ASSERT_EQ(log.Lines().size(), 1U);
    const LogLine line = log.Lines().front();
    EXPECT_EQ(line.file, "LockableUtils.h");
    EXPECT_EQ(line.function, "AssertIsLocked");
    EXPECT_EQ(line.line, 45);
    EXPECT_EQ(line.priority, 6);
}

TEST(AssertIsLocked, APlaceIsToldAsPathAndLineWithNothingBetween)
{
    const CaughtLog log;
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(AssertIsLockedAt(lock, "/folder/File.cpp", 7));
    EXPECT_THAT(log.Lines(), IsEmpty());
    lock.unlock();
    EXPECT_FALSE(AssertIsLockedAt(lock, "/folder/File.cpp", 7));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("E AssertIsLocked: mutex not locked! /folder/File.cpp7"));
}

TEST(ScopedUnlock, TheMutexIsFreeInsideTheScopeAndHeldAfterIt)
{
    const CaughtLog log;
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    {
        const ScopedUnlock unlock(lock);
        EXPECT_FALSE(lock.owns_lock());
        EXPECT_FALSE(SomebodyHolds(mutex));
    }
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_TRUE(SomebodyHolds(mutex));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(ScopedUnlock, TheMutexIsHeldAgainWhenAnExceptionLeavesTheScope)
{
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_THROW(
        {
            const ScopedUnlock unlock(lock);
            throw std::runtime_error("out of the scope");
        },
        std::runtime_error);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_TRUE(SomebodyHolds(mutex));
}

TEST(ScopedUnlock, ALockThatIsNotHeldIsToldAndRefused)
{
    const CaughtLog log;
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex, std::defer_lock);
    EXPECT_EQ(ErrorOf([&] { const ScopedUnlock unlock(lock); }),
              std::errc::operation_not_permitted);
    EXPECT_FALSE(lock.owns_lock());
    EXPECT_FALSE(SomebodyHolds(mutex));
    EXPECT_THAT(log.Summaries(),
                ElementsAre(MatchesRegex("E AssertIsLocked: mutex not locked! "
                                         ".*include_internal/LockableUtils\\.h[0-9]+")));
}

TEST(ScopedUnlock, ALockWithoutAMutexIsRefused)
{
    const CaughtLog log;
    std::unique_lock<std::mutex> lock;
    EXPECT_EQ(ErrorOf([&] { const ScopedUnlock unlock(lock); }),
              std::errc::operation_not_permitted);
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST(ScopedUnlock, ALockThatIsHeldAgainBeforeTheEndIsAnErrorAndStaysHeld)
{
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    const std::error_code error = ErrorOf([&] {
        const ScopedUnlock unlock(lock);
        lock.lock();
    });
    EXPECT_EQ(error, std::errc::resource_deadlock_would_occur);
    EXPECT_TRUE(lock.owns_lock());
}
