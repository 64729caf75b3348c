#include "Memory.h"

#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Scheduler.h"

namespace EXPLORER {

namespace {

constexpr std::size_t StackSpacing = StackSize + (16U << 10U);  // with room that nobody may touch
constexpr std::size_t Alignment = 16;

// What is kept per eight bytes of memory.
struct Cell
{
    std::uint32_t run;
    std::uint16_t written;
    std::uint8_t writer;
    bool freed;
    VectorClock read;
};

void* Map(std::size_t size)
{
    void* const mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED) {
        std::perror("schedules: no memory");
        std::_Exit(2);
    }
    return mapped;
}

}  // namespace

RunMemory& Memory()
{
    static RunMemory& memory = *new RunMemory;
    return memory;
}

RunMemory::RunMemory()
{
    m_First = reinterpret_cast<std::uintptr_t>(Map(Size()));
    m_Heap = m_First + MaxThreads * StackSpacing;
    for (std::size_t i = 0; i < MaxThreads; ++i) {
        mprotect(reinterpret_cast<void*>(m_First + i * StackSpacing), StackSpacing - StackSize,
                 PROT_NONE);
    }
}

std::size_t RunMemory::Size() const
{
    return MaxThreads * StackSpacing + HeapSize;
}

void* RunMemory::Stack(std::size_t thread)
{
    return reinterpret_cast<void*>(m_First + (thread + 1) * StackSpacing - StackSize);
}

bool RunMemory::Owns(const void* address) const
{
    return reinterpret_cast<std::uintptr_t>(address) - m_Heap < HeapSize;
}

void* RunMemory::Allocate(std::size_t size)
{
    const std::size_t rounded = (size + Alignment - 1) / Alignment * Alignment + Alignment;
    if (rounded > HeapSize - m_Used) {
        scheduler.Fail("the run needs too much memory for the explorer");
    }
    auto* const block = reinterpret_cast<std::byte*>(m_Heap + m_Used);
    m_Used += rounded;
    std::memcpy(block, &size, sizeof size);
    return block + Alignment;
}

std::size_t RunMemory::SizeOf(const void* block)
{
    std::size_t size = 0;
    std::memcpy(&size, static_cast<const std::byte*>(block) - Alignment, sizeof size);
    return size;
}

namespace RACES {

bool tracked = false;

namespace {

std::uint32_t run = 0;

// The program's own data, for the statics of the code under test.
extern "C" char __data_start;  // NOLINT(bugprone-reserved-identifier): the linker's names
extern "C" char _end;          // NOLINT(bugprone-reserved-identifier)

class Cells
{
public:
    Cells(std::uintptr_t first, std::size_t size)
        : m_First(first),
          m_Size(size),
          m_Cells(static_cast<Cell*>(Map(size / 8 * sizeof(Cell) + 64)))
    {}

    // Returns null if the address belongs elsewhere.
    Cell* Find(std::uintptr_t address)
    {
        if (address - m_First >= m_Size) {
            return nullptr;
        }
        Cell& cell = m_Cells[(address - m_First) / 8];
        if (cell.run != run) {
            cell = Cell();
            cell.run = run;
        }
        return &cell;
    }

private:
    std::uintptr_t m_First;
    std::size_t m_Size;
    Cell* m_Cells;
};

Cells* heap = nullptr;  // the runs' memory, stacks included
Cells* data = nullptr;

Cell* Find(std::uintptr_t address)
{
    Cell* const cell = heap->Find(address);
    return cell != nullptr ? cell : data->Find(address);
}

[[noreturn]] void FailUnordered(bool writes, std::size_t other, bool otherWrote)
{
    scheduler.Fail(std::string("data race: the thread ") + (writes ? "writes" : "reads") +
                   " memory that thread " + std::to_string(other + 1) + " has " +
                   (otherWrote ? "written" : "read") + ", with nothing to order the two");
}

void Check(Cell& cell, bool writes)
{
    const std::size_t self = static_cast<std::size_t>(scheduler.Current());
    const VectorClock& clock = scheduler.Self().clock;
    if (cell.freed) {
        scheduler.Fail("the thread uses memory that was freed");
    }
    if (cell.written > clock[cell.writer]) {
        FailUnordered(writes, cell.writer, true);
    }
    if (!writes) {
        cell.read[self] = clock[self];
        return;
    }
    for (std::size_t i = 0; i < MaxThreads; ++i) {
        if (cell.read[i] > clock[i]) {
            FailUnordered(true, i, false);
        }
    }
    cell.written = clock[self];
    cell.writer = static_cast<std::uint8_t>(self);
}

}  // namespace

void Reset()
{
    if (run++ == 0) {
        heap = new Cells(Memory().First(), Memory().Size());
        const auto start = reinterpret_cast<std::uintptr_t>(&__data_start) & ~std::uintptr_t{7};
        data = new Cells(start, reinterpret_cast<std::uintptr_t>(&_end) - start);
    }
}

void Access(const void* address, std::size_t size, bool writes)
{
    const auto first = reinterpret_cast<std::uintptr_t>(address) & ~std::uintptr_t{7};
    const auto end = reinterpret_cast<std::uintptr_t>(address) + size;
    for (std::uintptr_t at = first; at < end; at += 8) {
        if (Cell* const cell = Find(at)) {
            Check(*cell, writes);
        }
    }
}

void Free(const void* address, std::size_t size)
{
    if (tracked) {
        Access(address, size, true);
    }
    const auto first = reinterpret_cast<std::uintptr_t>(address);
    for (std::uintptr_t at = first; at < first + size; at += 8) {
        Find(at)->freed = true;
    }
}

void ExpectAlive(const void* address, const char* use)
{
    const Cell* const cell = Find(reinterpret_cast<std::uintptr_t>(address));
    if (cell != nullptr && cell->freed) {
        scheduler.Fail(std::string("the thread uses a ") + use + " in memory that was freed");
    }
}

}  // namespace RACES
}  // namespace EXPLORER
