#pragma once

#include <mutex>
#include <string>

#include "Utils.h"

namespace VORTAN_MW {
namespace UTILS {

// Checks and scopes for members that run under a mutex which their caller holds. Such a member
// takes the held lock as its first argument, checks it first, and never locks by itself. A failed
// check is reported and nothing else: neither facility ends the process on its own account.
//
// None of this is recursive: a std::mutex must not be taken twice by one thread, and none of it
// keeps a state of its own.

// Lockedness tests, one per kind of lockable. One for another kind is another overload here, ahead
// of its use.

// Says whether this lock object holds its mutex. The lock is only read.
inline bool IsLocked(const std::unique_lock<std::mutex>& lock)
{
    return lock.owns_lock();
}

// Says whether somebody holds the mutex. If nobody does, the calling thread holds it from here on:
// the probe is deliberately not undone. Not for a mutex that the calling thread holds.
inline bool IsLocked(std::mutex& mutex)
{
    return !mutex.try_lock();
}

// Returns whether lockable is locked, and logs an error if not. It does nothing else: the caller
// decides what to do, and usually carries on. caller is the full path of the calling source file
// directly followed by the line number.
template <typename Lockable>
bool AssertIsLocked(Lockable& lockable, std::string caller)
{
    if (IsLocked(lockable)) {
        return true;
    }
    // The line number is part of the line that tools search logs for.
    static_assert(__LINE__ == 44, "the next statement stays on line 45");
    LOG_ERROR("mutex not locked! " << caller);
    return false;
}

// Puts the two pieces of a caller together. Not inlined: a check that succeeds is two instructions.
[[gnu::noinline]] inline bool ReportUnlocked(const std::unique_lock<std::mutex>& lock,
                                             const char* file, int line)
{
    return AssertIsLocked(lock, file + std::to_string(line));
}

// The same for a caller given in two pieces, which are put together only when they are needed.
inline bool AssertIsLockedAt(const std::unique_lock<std::mutex>& lock, const char* file, int line)
{
    return IsLocked(lock) || ReportUnlocked(lock, file, line);
}

// Releases a held lock for the length of a scope, and takes it again also when an exception leaves
// the scope. Raises std::system_error as std::unique_lock does: if the lock is not held at the
// start, or is held at the end.
class ScopedUnlock
{
public:
    explicit ScopedUnlock(std::unique_lock<std::mutex>& lock) : m_Lock(lock)
    {
        AssertIsLockedAt(m_Lock, __FILE__, __LINE__);
        m_Lock.unlock();
    }

    ScopedUnlock(const ScopedUnlock&) = delete;
    ScopedUnlock& operator=(const ScopedUnlock&) = delete;

    ~ScopedUnlock() noexcept(false) { m_Lock.lock(); }

private:
    std::unique_lock<std::mutex>& m_Lock;
};

}  // namespace UTILS
}  // namespace VORTAN_MW
