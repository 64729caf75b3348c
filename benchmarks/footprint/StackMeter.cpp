#include "StackMeter.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t StackSize = std::size_t{1} << 20;
constexpr unsigned char Paint = 0xA5;

// The lowest address of each. No vector: that would be part of the heap that is measured.
std::array<const unsigned char*, 64> stacks;
std::atomic<std::size_t> stackCount{0};

// With a page in front that nobody may touch. Never given back: it is looked at later.
unsigned char* MakeStack()
{
    const auto guard = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const area = mmap(nullptr, guard + StackSize, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (area == MAP_FAILED || mprotect(area, guard, PROT_NONE) != 0) {
        return nullptr;
    }
    auto* const lowest = static_cast<unsigned char*>(area) + guard;
    std::memset(lowest, Paint, StackSize);
    return lowest;
}

std::size_t UsedOf(const unsigned char* lowest)
{
    const unsigned char* const end = lowest + StackSize;
    return static_cast<std::size_t>(
        end - std::find_if(lowest, end, [](unsigned char byte) { return byte != Paint; }));
}

}  // namespace

std::size_t DeepestStack()
{
    std::size_t deepest = 0;
    for (std::size_t i = 0; i < stackCount; ++i) {
        deepest = std::max(deepest, UsedOf(stacks.at(i)));
    }
    return deepest;
}

// Stands before the C library's: whoever starts a thread comes here first.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument)
{
    static const auto next =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    unsigned char* const lowest = MakeStack();
    if (!lowest) {
        return EAGAIN;
    }
    stacks.at(stackCount++) = lowest;
    int detached = PTHREAD_CREATE_JOINABLE;
    if (attributes) {
        pthread_attr_getdetachstate(attributes, &detached);
    }
    pthread_attr_t own;
    pthread_attr_init(&own);
    pthread_attr_setdetachstate(&own, detached);
    pthread_attr_setstack(&own, lowest, StackSize);
    const int error = next(thread, &own, start, argument);
    pthread_attr_destroy(&own);
    return error;
}
