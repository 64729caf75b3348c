#pragma once

#include <cstddef>
#include <cstdint>

namespace EXPLORER {

constexpr std::size_t StackSize = 256U << 10U;
constexpr std::size_t HeapSize = 8U << 20U;

// The memory of a run: stacks, and a heap that never gives the same address twice. All of it is
// taken back at the end of the run, so that each run finds the same addresses.
class RunMemory
{
public:
    RunMemory();

    void Reset() { m_Used = 0; }
    void* Stack(std::size_t thread);
    void* Allocate(std::size_t size);
    static std::size_t SizeOf(const void* block);
    bool Owns(const void* address) const;

    std::uintptr_t First() const { return m_First; }
    std::size_t Size() const;

private:
    std::uintptr_t m_First = 0;
    std::uintptr_t m_Heap = 0;
    std::size_t m_Used = 0;
};

RunMemory& Memory();

// Looks for data races and for the use of freed memory, in what the instrumented code reads and
// writes. An access must be ordered by synchronisation with each other thread's conflicting one.
namespace RACES {

// Whether what the running thread reads and writes is checked.
extern bool tracked;
void Reset();
void Access(const void* address, std::size_t size, bool writes);
void Free(const void* address, std::size_t size);
// Ends the run if an object there cannot be used any more.
void ExpectAlive(const void* address, const char* use);

}  // namespace RACES
}  // namespace EXPLORER
