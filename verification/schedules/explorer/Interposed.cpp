// The functions that this program defines in place of the C and C++ libraries': those of threads,
// time, the guards of function-local statics, reference counts, and memory. Outside of a run there
// is one thread only.

#include <cxxabi.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <map>
#include <new>

#include "Scheduler.h"

extern "C" const char __executable_start;  // NOLINT(bugprone-reserved-identifier): the linker's
extern "C" const char _end;                // NOLINT(bugprone-reserved-identifier)

namespace EXPLORER {

namespace {

constexpr char Mutex[] = "mutex";
constexpr char Condition[] = "condition";
constexpr char Guard[] = "guard of a static";
constexpr char Counts[] = "reference counts";

Object& Take(const char* verb, const void* address, const char* kind)
{
    Object& object = *scheduler.Find(address, kind);
    scheduler.Perform({verb, &object, Call::Free});
    scheduler.Acquire(object);
    return object;
}

void Own(Object& mutex)
{
    mutex.owner = static_cast<int>(scheduler.current);
    ++scheduler.Self().mutexes;
}

void Lock(const void* address)
{
    if (scheduler.Find(address, Mutex)->owner == static_cast<int>(scheduler.current)) {
        scheduler.Fail("deadlock: the thread locks a mutex that it holds");
    }
    Own(Take("locks", address, Mutex));
}

void Unlock(Object& mutex)
{
    if (mutex.owner != static_cast<int>(scheduler.current)) {
        scheduler.Fail("the thread unlocks a mutex that it does not hold");
    }
    mutex.owner = Nobody;
    --scheduler.Self().mutexes;
    scheduler.Release(mutex);
}

// A time that no run reaches is none.
template <typename Time>
int Wait(const void* address, const void* mutexAddress, const Time* until)
{
    Object& condition = *scheduler.Find(address, Condition);
    Object& mutex = *scheduler.Find(mutexAddress, Mutex);
    Call call = {"unlocks its mutex and waits for", &condition};
    call.mutex = &mutex;
    scheduler.Perform(call);
    Unlock(mutex);
    scheduler.Self().notified = false;
    call = {"wakes from", &condition, Call::Woken};
    if (until != nullptr && until->tv_sec < 365LL * 24 * 3600) {
        call.deadline = std::int64_t{until->tv_sec} * 1000000000 + until->tv_nsec;
    }
    const std::uint8_t outcome = scheduler.Perform(call);
    Lock(mutexAddress);
    return outcome == TimeOut ? ETIMEDOUT : 0;
}

int Notify(const char* verb, const void* address, bool all)
{
    if (scheduler.active) {
        Object* const condition = scheduler.Find(address, Condition);
        int skipped = scheduler.Perform({verb, condition, all ? Call::Nothing : Call::Waiter});
        for (Thread& thread : scheduler.threads) {
            if (thread.call.need == Call::Woken && thread.call.object == condition &&
                !thread.notified && (all || skipped-- == 0)) {
                thread.notified = true;
            }
        }
    }
    return 0;
}

int Dispose(const char* verb, pthread_t number, Call::Need need)
{
    const int other = static_cast<int>(number) - 1;
    scheduler.Perform({verb, nullptr, need, other});
    Thread& thread = scheduler.threads[static_cast<std::size_t>(other)];
    if (thread.disposed) {
        scheduler.Fail("the other thread was joined or detached before");
    }
    thread.disposed = true;
    if (need == Call::Ended) {
        Object ended;
        ended.clock = thread.clock;
        ended.time = thread.time;
        scheduler.Acquire(ended);
    }
    return 0;
}

template <typename Function>
Function* Next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Reference counts are the only atomics of the code under test. To take a reference needs one, so
// its order among others does not matter: nothing is decided there. But that the last one goes is a
// write, and must be ordered with each such use.
void UseCount(const volatile void* count, bool isLast)
{
    if (MEMORY::tracked) {
        MEMORY::Access(const_cast<const void*>(count), sizeof(int), isLast);
    }
}

int AddToCount(volatile int* count, int added)
{
    if (!scheduler.active || added >= 0) {
        UseCount(count, false);
    } else {
        scheduler.Perform({"lets go of a reference"});
        // Both counts of an owned object share a cell of the memory.
        const auto* const bytes = reinterpret_cast<const char*>(const_cast<const int*>(count));
        const void* const cell = bytes - reinterpret_cast<std::uintptr_t>(count) % 8;
        const bool isLast = *count + added == 0;
        UseCount(count, false);
        Object& counts = *scheduler.Find(cell, Counts);
        MEMORY::ExpectAlive(counts);
        scheduler.Drop(counts, isLast);
        if (isLast) {
            UseCount(count, true);
        }
    }
    const int before = *count;
    *count = before + added;
    return before;
}

// Whether the guard is one of the code under test.
bool IsOfRun(const void* guard)
{
    return scheduler.active && guard >= &__executable_start && guard < &_end;
}

}  // namespace

void ResetStatics()
{
    for (const Object& object : scheduler.objects) {
        if (object.kind == Guard && object.done) {
            *static_cast<char*>(const_cast<void*>(object.address)) = 0;
        }
    }
}

void Gate::Open()
{
    Object& gate = *scheduler.Find(this, "gate");
    scheduler.Perform({"opens", &gate});
    gate.done = true;
    scheduler.Release(gate);
}

void Gate::Wait()
{
    Object& gate = *scheduler.Find(this, "gate");
    scheduler.Perform({"passes", &gate, Call::Done});
    scheduler.Acquire(gate);
}

}  // namespace EXPLORER

using namespace EXPLORER;

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    if (scheduler.active) {
        Lock(mutex);
    }
    return 0;
}

int pthread_mutex_trylock(pthread_mutex_t* address) noexcept
{
    if (scheduler.active) {
        Object& mutex = *scheduler.Find(address, Mutex);
        scheduler.Perform({"tries to lock", &mutex});
        if (mutex.owner != Nobody) {
            return EBUSY;
        }
        Own(mutex);
        scheduler.Acquire(mutex);
    }
    return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* address) noexcept
{
    if (scheduler.active) {
        Object& mutex = *scheduler.Find(address, Mutex);
        scheduler.Perform({"unlocks", &mutex});
        Unlock(mutex);
    }
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    return Wait<timespec>(condition, mutex, nullptr);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until)
{
    return Wait(condition, mutex, until);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t,
                           const timespec* until)
{
    return Wait(condition, mutex, until);
}

#if defined(__TIMESIZE) && __TIMESIZE == 32
// What code that is compiled with wide times calls.
struct WideTime
{
    std::int64_t tv_sec;
    std::int32_t tv_nsec;
};

// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
int __pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t,
                               const WideTime* until)
{
    return Wait(condition, mutex, until);
}
#endif

int pthread_cond_signal(pthread_cond_t* condition) noexcept
{
    return Notify("notifies one thread at", condition, false);
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept
{
    return Notify("notifies all threads at", condition, true);
}

int pthread_create(pthread_t* thread, const pthread_attr_t*, void* (*routine)(void*),
                   void* argument) noexcept
{
    if (scheduler.Perform({"starts a thread", nullptr, Call::NewThread}) == CannotStart) {
        return EAGAIN;
    }
    *thread = static_cast<pthread_t>(scheduler.Start(routine, argument)) + 1;
    return 0;
}

int pthread_join(pthread_t thread, void**)
{
    const bool isSelf = static_cast<int>(thread) == ThisThread();
    return isSelf ? EDEADLK : Dispose("joins", thread, Call::Ended);
}

int pthread_detach(pthread_t thread) noexcept
{
    return Dispose("detaches", thread, Call::Nothing);
}

pthread_t pthread_self() noexcept
{
    return static_cast<pthread_t>(ThisThread());
}

// A thread's values are destroyed when its function has returned.
int pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) noexcept
{
    if (!scheduler.active) {
        return Next<int(pthread_key_t*, void (*)(void*))>("pthread_key_create")(key, destructor);
    }
    const int added = scheduler.AddKey(destructor);
    *key = static_cast<pthread_key_t>(added);
    return added == Nobody ? EAGAIN : 0;
}

int pthread_setspecific(pthread_key_t key, const void* value) noexcept
{
    if (!scheduler.active) {
        return Next<int(pthread_key_t, const void*)>("pthread_setspecific")(key, value);
    }
    scheduler.Self().values.at(key) = const_cast<void*>(value);
    return 0;
}

int sched_yield() noexcept
{
    scheduler.Perform({"steps aside"});
    return 0;
}

// Each thread has a clock of its own. It only moves on when a wait's time is up, and catches up
// with the clocks of those that it synchronises with.
int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    if (!scheduler.active) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    }
    time->tv_sec = static_cast<std::time_t>(scheduler.Self().time / 1000000000);
    time->tv_nsec = static_cast<long>(scheduler.Self().time % 1000000000);
    return 0;
}

// The one atomic that the compiler makes by itself: whether a static is initialised. On 32-bit ARM
// a guard is a word, as counts are, elsewhere a byte.
#if defined(__arm__)
using GuardValue = unsigned int;
#define EXPLORER_LOAD_GUARD __tsan_atomic32_load  // NOLINT(bugprone-reserved-identifier)
#else
using GuardValue = unsigned char;
#define EXPLORER_LOAD_GUARD __tsan_atomic8_load  // NOLINT(bugprone-reserved-identifier)
#endif
GuardValue EXPLORER_LOAD_GUARD(const volatile GuardValue* value, int)
{
    const void* const guard = const_cast<const GuardValue*>(value);
    if (IsOfRun(guard)) {
        Object& object = *scheduler.Find(guard, Guard);
        scheduler.Perform({"reads", &object});
        scheduler.Acquire(object);
    } else {
        UseCount(value, false);
    }
    return *value;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the compiler's names
#if !defined(__arm__)
int __tsan_atomic32_load(const volatile int* count, int)
{
    UseCount(count, false);
    return *count;
}
#endif

int __tsan_atomic32_fetch_add(volatile int* count, int added, int)
{
    return AddToCount(count, added);
}

int __tsan_atomic32_compare_exchange_weak(volatile int* count, int* expected, int desired, int, int)
{
    UseCount(count, false);
    if (*count != *expected) {
        *expected = *count;
        return 0;
    }
    *count = desired;
    return 1;
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace __cxxabiv1 {

extern "C" int __cxa_guard_acquire(__guard* guard)
{
    if (!IsOfRun(guard)) {
        return *reinterpret_cast<char*>(guard) == 0 ? 1 : 0;
    }
    Object& object = Take("takes", guard, Guard);
    object.owner = object.done ? Nobody : static_cast<int>(scheduler.current);
    return object.done ? 0 : 1;
}

extern "C" void __cxa_guard_release(__guard* guard) noexcept
{
    if (IsOfRun(guard)) {
        Object& object = *scheduler.Find(guard, Guard);
        scheduler.Perform({"has initialised the static of", &object});
        object.owner = Nobody;
        object.done = true;
        scheduler.Release(object);
    }
    *reinterpret_cast<char*>(guard) = 1;
}

extern "C" void __cxa_guard_abort(__guard* guard) noexcept
{
    if (IsOfRun(guard)) {
        scheduler.Find(guard, Guard)->owner = Nobody;
    }
}

}  // namespace __cxxabiv1

void* operator new(std::size_t size)
{
    void* const block = scheduler.active ? MEMORY::Allocate(size) : std::malloc(size);
    return block != nullptr ? block : throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    if (!MEMORY::Owns(block)) {
        std::free(block);
    } else if (scheduler.active) {
        MEMORY::Free(block);
    }
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

using Node = std::_Rb_tree_node_base;

namespace {

const auto increment = Next<Node*(Node*)>("_ZSt18_Rb_tree_incrementPSt18_Rb_tree_node_base");
const auto insert = Next<void(bool, Node*, Node*, Node&)>(
    "_ZSt29_Rb_tree_insert_and_rebalancebPSt18_Rb_tree_node_baseS0_RS_");
const auto erase =
    Next<Node*(Node*, Node&)>("_ZSt28_Rb_tree_rebalance_for_erasePSt18_Rb_tree_node_baseRS_");

void Access(const Node* node, bool writes)
{
    if (MEMORY::tracked && node != nullptr) {
        MEMORY::Access(node, sizeof *node, writes);
    }
}

}  // namespace

namespace std {

_GLIBCXX_PURE Node* _Rb_tree_increment(Node* node) noexcept
{
    Access(node, false);
    return increment(node);
}

void _Rb_tree_insert_and_rebalance(const bool left, Node* node, Node* parent, Node& header) noexcept
{
    Access(parent, true);
    Access(&header, true);
    insert(left, node, parent, header);
}

Node* _Rb_tree_rebalance_for_erase(Node* const node, Node& header) noexcept
{
    for (Node* const changed : {node, node->_M_parent, node->_M_left, node->_M_right, &header}) {
        Access(changed, true);
    }
    return erase(node, header);
}

}  // namespace std
