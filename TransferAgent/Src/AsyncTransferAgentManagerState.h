#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "AsyncTransferAgentManager.h"
#include "LockableUtils.h"
#include "ThreadAnnotations.h"
#include "Utils.h"

namespace VORTAN_MW {

// Stands for "the manager's mutex is held" in clang's thread-safety analysis. It has no content:
// the mutex stays a plain std::mutex, which the analysis does not know.
class VORTAN_CAPABILITY("role") MutexHeld
{
};

// What a manager knows, and the one mutex that guards it.
struct AsyncTransferAgentManager::State
{
    using JobTable = std::map<std::uint64_t, TransferJob>;
    using ThreadTable = std::map<std::thread::id, UTILS::ScopedExceptionSafeThread>;
    using SleeperTable = std::map<std::uint64_t, std::unique_ptr<std::condition_variable>>;

    MutexHeld held;

    // Everything but the mutex is guarded by it. Once terminating is set, no worker changes the
    // thread table or the sleeper table any more, so that the destructor may walk both without the
    // mutex. The job table comes first because it must be destroyed last.
    JobTable jobs VORTAN_GUARDED_BY(held);
    std::uint64_t nextHandle VORTAN_GUARDED_BY(held) = 0;
    std::mutex mutex;
    // One entry for each worker that has not taken its leave.
    ThreadTable threads VORTAN_GUARDED_BY(held);
    // One entry for each worker in an interruptible wait.
    SleeperTable sleepers VORTAN_GUARDED_BY(held);
    bool terminating VORTAN_GUARDED_BY(held) = false;

    // Checks at run time that the mutex is held, and tells the compile-time analysis so. A failed
    // check is logged with the place that asked, and returns false.
    bool AssertHeld(const Lock& lock, const char* file, int line) const VORTAN_ASSERT_HELD(held)
    {
        return UTILS::AssertIsLockedAt(lock, file, line);
    }

    // Makes an entry for the thread table ahead of the thread: nothing may fail between starting a
    // thread and filing it.
    static ThreadTable::node_type NewThreadEntry()
    {
        ThreadTable staging;
        staging.try_emplace(std::thread::id());
        return staging.extract(staging.begin());
    }

    // Registers a wait. Returns false if the handle has one already. During shutdown nothing is
    // registered, as Sleep will not wait.
    bool AddSleeper(std::uint64_t handle) VORTAN_REQUIRES(held)
    {
        return terminating ||
               sleepers.emplace(handle, std::make_unique<std::condition_variable>()).second;
    }

    // Waits once, without the mutex. Returns true if the wait ended early, for whatever reason.
    bool Sleep(Lock& lock, std::uint64_t handle, std::int64_t milliseconds) VORTAN_REQUIRES(held)
    {
        return terminating || sleepers.at(handle)->wait_for(lock, ClampToClock(milliseconds)) ==
                                  std::cv_status::no_timeout;
    }

    void RemoveSleeper(std::uint64_t handle) VORTAN_REQUIRES(held)
    {
        if (!terminating) {
            sleepers.erase(handle);
        }
    }

    // The tables for the destructor's walk, once terminating is set.
    SleeperTable& SleepersAtShutdown() VORTAN_NO_THREAD_ANALYSIS { return sleepers; }
    ThreadTable& ThreadsAtShutdown() VORTAN_NO_THREAD_ANALYSIS { return threads; }

    // The wait as it can be added to the clock's time. Never below 0.
    static std::chrono::milliseconds ClampToClock(std::int64_t milliseconds)
    {
        using std::chrono::duration_cast;
        using std::chrono::seconds;
        // Where the system cannot wait by the steady clock, the library counts by the other one.
        const seconds now =
            std::max(duration_cast<seconds>(std::chrono::steady_clock::now().time_since_epoch()),
                     duration_cast<seconds>(std::chrono::system_clock::now().time_since_epoch()));
        return std::clamp(std::chrono::milliseconds(milliseconds), std::chrono::milliseconds(0),
                          LongestWait<std::time_t>(now));
    }

    // The wait that ends before the clock overflows, and before the seconds do that the system call
    // takes: where the C library is old, theirs have 32 bits on 32-bit machines.
    template <typename Seconds>
    static std::chrono::milliseconds LongestWait(std::chrono::seconds now)
    {
        using std::chrono::seconds;
        const seconds last =
            std::min(std::chrono::duration_cast<seconds>(std::chrono::nanoseconds::max()),
                     seconds(std::int64_t{std::numeric_limits<Seconds>::max()}));
        return std::max(last - now - seconds(1), seconds(0));
    }

    // Holds the mutex for a scope.
    class VORTAN_SCOPED_CAPABILITY MutexScope
    {
    public:
        explicit MutexScope(State& state) VORTAN_ACQUIRE(state.held) : m_Lock(state.mutex) {}

        // For a worker that starts, mostly while RequestTransfer is just about to free the mutex:
        // stepping aside once costs less than being put to sleep and woken. With four under way,
        // transfers take 1.63 times what bare threads do, and 1.68 times without it; rounds differ
        // by 8 % (docs/performance.md).
        struct AfterYield
        {
        };
        MutexScope(State& state, AfterYield) VORTAN_ACQUIRE(state.held)
            : m_Lock(state.mutex, std::try_to_lock)
        {
            if (!m_Lock) {
                std::this_thread::yield();
                m_Lock.lock();
            }
        }
        ~MutexScope() VORTAN_RELEASE() {}

        Lock& Get() { return m_Lock; }

    private:
        Lock m_Lock;
    };

    // Gives the mutex up for a scope, in which the client's code runs.
    class VORTAN_SCOPED_CAPABILITY MutexGap
    {
    public:
        MutexGap(Lock& lock, const MutexHeld& held) VORTAN_RELEASE(held) : m_Unlock(lock)
        {
            static_cast<void>(held);
        }
        ~MutexGap() noexcept(false) VORTAN_RELEASE() {}

    private:
        UTILS::ScopedUnlock m_Unlock;
    };
};

}  // namespace VORTAN_MW
