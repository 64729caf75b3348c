// The functions that this program defines in place of the C and C++ libraries': those of threads,
// time, the guards of function-local statics, and memory. Outside of a run they do what the
// libraries' do.

#include <cxxabi.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <new>

#include "Scheduler.h"

using EXPLORER::Call;
using EXPLORER::Operation;
using EXPLORER::scheduler;

namespace {

// The library's own function.
template <typename Function>
Function* Next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::uint8_t Perform(Operation operation, const void* address, const char* kind)
{
    Call call;
    call.operation = operation;
    call.object = scheduler.Find(address, kind);
    return scheduler.Perform(call);
}

constexpr char Mutex[] = "mutex";
constexpr char Condition[] = "condition";
constexpr char Guard[] = "guard";

int Wait(const void* condition, const void* mutex, std::int64_t deadline)
{
    Call call;
    call.operation = Operation::Wait;
    call.object = scheduler.Find(condition, Condition);
    call.mutex = scheduler.Find(mutex, Mutex);
    call.deadline = deadline;
    scheduler.Perform(call);
    call.operation = Operation::Wake;
    call.mutex = nullptr;
    const std::uint8_t outcome = scheduler.Perform(call);
    Perform(Operation::Lock, mutex, Mutex);
    return outcome == EXPLORER::TimeOut ? ETIMEDOUT : 0;
}

// A time that no run reaches counts as none.
template <typename Seconds>
std::int64_t Nanoseconds(Seconds seconds, long nanoseconds)
{
    constexpr std::int64_t year = 365LL * 24 * 3600;
    return seconds > year ? EXPLORER::Endless : std::int64_t{seconds} * 1000000000 + nanoseconds;
}

int Dispose(pthread_t thread, Operation operation)
{
    Call call;
    call.operation = operation;
    call.thread = static_cast<int>(thread) - 1;
    if (!scheduler.Exists(call.thread)) {
        return ESRCH;
    }
    scheduler.Perform(call);
    return 0;
}

}  // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_mutex_lock, __func__);
        return next(mutex);
    }
    if (scheduler.Find(mutex, Mutex)->owner == scheduler.Current()) {
        scheduler.Fail("deadlock: the thread locks a mutex that it holds");
    }
    Perform(Operation::Lock, mutex, Mutex);
    return 0;
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_mutex_trylock, __func__);
        return next(mutex);
    }
    return Perform(Operation::TryLock, mutex, Mutex) == EXPLORER::IsTaken ? EBUSY : 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_mutex_unlock, __func__);
        return next(mutex);
    }
    Perform(Operation::Unlock, mutex, Mutex);
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_cond_wait, __func__);
        return next(condition, mutex);
    }
    return Wait(condition, mutex, EXPLORER::Endless);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline)
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_cond_timedwait, __func__);
        return next(condition, mutex, deadline);
    }
    return Wait(condition, mutex, Nanoseconds(deadline->tv_sec, deadline->tv_nsec));
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* deadline)
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_cond_clockwait, __func__);
        return next(condition, mutex, clock, deadline);
    }
    return Wait(condition, mutex, Nanoseconds(deadline->tv_sec, deadline->tv_nsec));
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_cond_signal, __func__);
        return next(condition);
    }
    Perform(Operation::NotifyOne, condition, Condition);
    return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_cond_broadcast, __func__);
        return next(condition);
    }
    Perform(Operation::NotifyAll, condition, Condition);
    return 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_create, __func__);
        return next(thread, attributes, routine, argument);
    }
    const int number = scheduler.Create(routine, argument);
    if (number == EXPLORER::Nobody) {
        return EAGAIN;
    }
    *thread = static_cast<pthread_t>(number) + 1;
    return 0;
}

int pthread_join(pthread_t thread, void** result)
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_join, __func__);
        return next(thread, result);
    }
    if (static_cast<int>(thread) - 1 == scheduler.Current()) {
        return EDEADLK;
    }
    const int error = Dispose(thread, Operation::Join);
    if (error == 0 && result != nullptr) {
        *result = scheduler.ResultOf(static_cast<int>(thread) - 1);
    }
    return error;
}

int pthread_detach(pthread_t thread) noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_detach, __func__);
        return next(thread);
    }
    return Dispose(thread, Operation::Detach);
}

pthread_t pthread_self() noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&pthread_self, __func__);
        return next();
    }
    return static_cast<pthread_t>(scheduler.Current()) + 1;
}

int sched_yield() noexcept
{
    if (scheduler.IsActive()) {
        Call call;
        call.operation = Operation::Yield;
        scheduler.Perform(call);
    }
    return 0;
}

// Each thread has a clock of its own. It only moves on when a wait's time is up, and catches up
// with the clocks of those that it synchronises with.
int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    if (!scheduler.IsActive()) {
        static const auto next = Next(&clock_gettime, __func__);
        return next(clock, time);
    }
    time->tv_sec = static_cast<std::time_t>(scheduler.Self().time / 1000000000);
    time->tv_nsec = static_cast<long>(scheduler.Self().time % 1000000000);
    return 0;
}

#if defined(__TIMESIZE) && __TIMESIZE == 32
// What code that was compiled with wide times calls.
struct WideTime
{
    std::int64_t seconds;
    std::int32_t nanoseconds;
};

int __pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t,
                               const WideTime* deadline)
{
    return Wait(condition, mutex, Nanoseconds(deadline->seconds, deadline->nanoseconds));
}

int __pthread_cond_timedwait64(pthread_cond_t* condition, pthread_mutex_t* mutex,
                               const WideTime* deadline)
{
    return Wait(condition, mutex, Nanoseconds(deadline->seconds, deadline->nanoseconds));
}
#endif

}  // extern "C"

// Guards of function-local statics. Those of the program itself are taken back after each run, so
// that each run initialises them; a run that is abandoned may leave one half-way.
extern "C" char __executable_start;  // NOLINT(bugprone-reserved-identifier): the linker's names
extern "C" char _end;                // NOLINT(bugprone-reserved-identifier)

namespace {

std::array<char*, 16> initialised;
std::size_t initialisedCount = 0;

bool IsOfRun(const char* guard)
{
    return scheduler.IsActive() && guard >= &__executable_start && guard < &_end;
}

}  // namespace

void EXPLORER::ResetStatics()
{
    while (initialisedCount > 0) {
        *initialised[--initialisedCount] = 0;
    }
}

namespace __cxxabiv1 {

extern "C" {

int __cxa_guard_acquire(__guard* guard)
{
    char* const byte = reinterpret_cast<char*>(guard);
    if (!IsOfRun(byte)) {
        return *byte == 0 ? 1 : 0;
    }
    Perform(Operation::AcquireGuard, byte, Guard);
    return scheduler.Find(byte, Guard)->done ? 0 : 1;
}

void __cxa_guard_release(__guard* guard) noexcept
{
    char* const byte = reinterpret_cast<char*>(guard);
    if (IsOfRun(byte)) {
        Perform(Operation::ReleaseGuard, byte, Guard);
        if (initialisedCount == initialised.size()) {
            scheduler.Fail("there are too many statics for the explorer");
        }
        initialised[initialisedCount++] = byte;
    }
    *byte = 1;
}

void __cxa_guard_abort(__guard* guard) noexcept
{
    char* const byte = reinterpret_cast<char*>(guard);
    if (IsOfRun(byte)) {
        scheduler.Find(byte, Guard)->owner = EXPLORER::Nobody;
    }
}

}  // extern "C"

}  // namespace __cxxabiv1

// The one atomic that the compiler makes by itself: code that was compiled with -fsanitize=thread
// asks whether a static is initialised.
extern "C" unsigned char __tsan_atomic8_load(const volatile unsigned char* guard, int)
{
    const auto* const address =
        const_cast<const char*>(reinterpret_cast<const volatile char*>(guard));
    if (IsOfRun(address)) {
        Perform(Operation::ReadGuard, address, Guard);
    }
    return *guard;
}

// Memory

void* operator new(std::size_t size)
{
    if (scheduler.IsActive()) {
        return EXPLORER::Memory().Allocate(size);
    }
    void* const block = std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept
{
    if (!EXPLORER::Memory().Owns(block)) {
        std::free(block);
        return;
    }
    if (scheduler.IsActive()) {
        const std::size_t size = EXPLORER::RunMemory::SizeOf(block);
        scheduler.Forget(block, size);
        EXPLORER::RACES::Free(block, size);
    }
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}
