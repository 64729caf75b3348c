#include "FailingAllocator.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> s_Countdown{0};
std::atomic<bool> s_Armed{false};
std::atomic<long> s_Live{0};

}  // namespace

namespace FAILING_ALLOCATOR {

void Arm(long number)
{
    s_Countdown = number;
    s_Armed = number != 0;
}

const char* Disarm()
{
    return s_Armed.exchange(false) && s_Countdown <= 0 ? "operator new" : nullptr;
}

long Live()
{
    return s_Live;
}

}  // namespace FAILING_ALLOCATOR

// The forms for arrays and those that do not throw come down to these.
void* operator new(std::size_t size)
{
    if (s_Armed && --s_Countdown == 0) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (!memory) {
        throw std::bad_alloc();
    }
    ++s_Live;
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory) {
        --s_Live;
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}
