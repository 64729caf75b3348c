#include "HeapMeter.h"

#include <malloc.h>

#include <cerrno>
#include <mutex>
#include <new>

namespace {

// Of a constant initialiser, and never destroyed: allocations come before and after everything.
struct Counters
{
    std::mutex mutex;
    HeapUse current = {0, 0};
    HeapUse peak = {0, 0};
};
Counters counters;

std::size_t SizeOf(void* block)
{
    return block ? malloc_usable_size(block) + sizeof(std::size_t) : 0;
}

void NotePeak()
{
    const HeapUse& current = counters.current;
    if (current.cxx + current.other > counters.peak.cxx + counters.peak.other) {
        counters.peak = current;
    }
}

void* Add(void* block, std::size_t HeapUse::*kind)
{
    const std::lock_guard<std::mutex> lock(counters.mutex);
    counters.current.*kind += SizeOf(block);
    NotePeak();
    return block;
}

void Remove(void* block, std::size_t HeapUse::*kind)
{
    const std::lock_guard<std::mutex> lock(counters.mutex);
    counters.current.*kind -= SizeOf(block);
}

}  // namespace

HeapUse operator-(const HeapUse& left, const HeapUse& right)
{
    return {left.cxx - right.cxx, left.other - right.other};
}

HeapUse CurrentHeap()
{
    const std::lock_guard<std::mutex> lock(counters.mutex);
    return counters.current;
}

HeapUse PeakHeap()
{
    const std::lock_guard<std::mutex> lock(counters.mutex);
    return counters.peak;
}

void ResetPeakHeap()
{
    const std::lock_guard<std::mutex> lock(counters.mutex);
    counters.peak = counters.current;
}

// What the C library calls its own functions, for those who put theirs before them.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);
extern "C" void __libc_free(void* block);
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size)
{
    if (void* const block = __libc_malloc(size)) {
        return Add(block, &HeapUse::cxx);
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    Remove(block, &HeapUse::cxx);
    __libc_free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept
{
    operator delete(block);
}

extern "C" {

void* malloc(std::size_t size)
{
    return Add(__libc_malloc(size), &HeapUse::other);
}

void* calloc(std::size_t count, std::size_t size)
{
    return Add(__libc_calloc(count, size), &HeapUse::other);
}

void* realloc(void* block, std::size_t size)
{
    Remove(block, &HeapUse::other);
    return Add(__libc_realloc(block, size), &HeapUse::other);
}

void* memalign(std::size_t alignment, std::size_t size)
{
    return Add(__libc_memalign(alignment, size), &HeapUse::other);
}

void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size)
{
    *block = memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}

void free(void* block)
{
    Remove(block, &HeapUse::other);
    __libc_free(block);
}
}
