// What code that was compiled with -fsanitize=thread calls, in place of that sanitizer's run-time
// library: each access to memory is checked by Memory.cpp.

#include "Scheduler.h"

namespace {

void Access(const void* address, std::size_t size, bool writes)
{
    if (EXPLORER::MEMORY::tracked) {
        EXPLORER::MEMORY::Access(address, size, writes);
    }
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier, bugprone-macro-parentheses): the compiler's names
#define EXPLORER_ACCESSES(size)                           \
    void __tsan_read##size(const void* address)           \
    {                                                     \
        Access(address, size, false);                     \
    }                                                     \
    void __tsan_write##size(void* address)                \
    {                                                     \
        Access(address, size, true);                      \
    }                                                     \
    void __tsan_unaligned_read##size(const void* address) \
    {                                                     \
        Access(address, size, false);                     \
    }                                                     \
    void __tsan_unaligned_write##size(void* address)      \
    {                                                     \
        Access(address, size, true);                      \
    }

extern "C" {
// clang-format off
EXPLORER_ACCESSES(1)
EXPLORER_ACCESSES(2)
EXPLORER_ACCESSES(4)
EXPLORER_ACCESSES(8)
EXPLORER_ACCESSES(16)
void __tsan_read_range(const void* address, std::size_t size) { Access(address, size, false); }
void __tsan_write_range(void* address, std::size_t size) { Access(address, size, true); }
void __tsan_vptr_read(const void* address) { Access(address, sizeof address, false); }
void __tsan_vptr_update(void* address, const void*) { Access(address, sizeof address, true); }
void __tsan_func_entry(const void*) {}
void __tsan_func_exit() {}
void __tsan_init() {}
// clang-format on
}
// NOLINTEND(bugprone-reserved-identifier, bugprone-macro-parentheses)
