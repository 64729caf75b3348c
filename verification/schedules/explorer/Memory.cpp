#include <sys/mman.h>

#include <cstring>
#include <new>

#include "Scheduler.h"

extern "C" const char __executable_start;  // NOLINT(bugprone-reserved-identifier): the linker's
extern "C" const char _end;                // NOLINT(bugprone-reserved-identifier)

namespace EXPLORER::MEMORY {

bool tracked = false;

namespace {

constexpr std::size_t HeapSize = 8U << 20U;
constexpr std::size_t StackSpacing = StackSize + (16U << 10U);  // with room that nobody may touch
constexpr std::size_t Header = 16;                              // of a block: its size
constexpr std::size_t RunSize = MaxThreads * StackSpacing + HeapSize;

// So many bytes are not told apart.
constexpr std::size_t Granule = sizeof(void*);

// What is known of them in the run.
struct Cell
{
    std::uint32_t run;
    std::uint16_t written;
    std::uint8_t writer;
    bool freed;
    VectorClock read;
};

std::uint32_t run = 0;
std::byte* memory = nullptr;  // stacks, then the heap
std::byte* heap = nullptr;
std::size_t used = 0;
Cell* cells = nullptr;

void* Map(std::size_t size)
{
    void* const mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return mapped;
}

std::uintptr_t NumberOf(const void* address)
{
    return reinterpret_cast<std::uintptr_t>(address);
}

// Returns null for memory that is neither the run's nor the program's own.
Cell* Find(std::uintptr_t address)
{
    const std::uintptr_t program = NumberOf(&__executable_start);
    const std::uintptr_t offset = address - NumberOf(memory);
    const bool isOfRun = offset < RunSize;
    if (!isOfRun && (address < program || address >= NumberOf(&_end))) {
        return nullptr;
    }
    Cell& cell = cells[(isOfRun ? offset : address - program + RunSize) / Granule];
    if (cell.run != run) {
        cell = Cell();
        cell.run = run;
    }
    return &cell;
}

void ExpectOrder(bool ordered, const char* now, std::size_t other, const char* before)
{
    if (!ordered) {
        scheduler.Fail(std::string("data race: the thread ") + now + " what thread " +
                       std::to_string(other + 1) + " has " + before +
                       ", and nothing orders the two");
    }
}

}  // namespace

void Reset()
{
    if (run++ == 0) {
        memory = static_cast<std::byte*>(Map(RunSize));
        heap = memory + MaxThreads * StackSpacing;
        cells = static_cast<Cell*>(
            Map((RunSize + (&_end - &__executable_start)) / Granule * sizeof(Cell)));
        for (std::byte* stack = memory; stack < heap; stack += StackSpacing) {
            mprotect(stack, StackSpacing - StackSize, PROT_NONE);
        }
    }
    used = 0;
}

void* Stack(std::size_t thread)
{
    return memory + (thread + 1) * StackSpacing - StackSize;
}

void* Allocate(std::size_t size)
{
    const std::size_t whole = (size + Header + 15) / 16 * 16;
    if (whole > HeapSize - used) {
        scheduler.Fail("the explorer has no room for so much memory");
    }
    std::byte* const block = heap + used;
    std::memcpy(block, &size, sizeof size);
    used += whole;
    return block + Header;
}

bool Owns(const void* block)
{
    return NumberOf(block) - NumberOf(heap) < HeapSize;
}

void Free(void* block)
{
    std::size_t size = 0;
    std::memcpy(&size, static_cast<std::byte*>(block) - Header, sizeof size);
    for (const Object& object : scheduler.objects) {
        if (NumberOf(object.address) - NumberOf(block) >= size) {
            continue;
        }
        bool inUse = object.owner != Nobody;
        for (const Thread& thread : scheduler.threads) {
            inUse = inUse || (thread.call.need == Call::Woken && thread.call.object == &object);
        }
        if (inUse) {
            scheduler.Fail(std::string("a ") + object.kind +
                           " is destroyed that is held or waited for");
        }
    }
    if (tracked) {
        Access(block, size, true);
    }
    for (std::uintptr_t at = NumberOf(block); at < NumberOf(block) + size; at += Granule) {
        Find(at)->freed = true;
    }
}

// An access must be ordered, by synchronisation, with each other thread's conflicting one.
void Access(const void* address, std::size_t size, bool writes)
{
    const std::size_t self = scheduler.current;
    const VectorClock& clock = scheduler.Self().clock;
    const char* const now = writes ? "writes" : "reads";
    for (std::uintptr_t at = NumberOf(address) / Granule * Granule; at < NumberOf(address) + size;
         at += Granule) {
        Cell* const found = Find(at);
        if (found == nullptr) {
            continue;
        }
        Cell& cell = *found;
        if (cell.freed) {
            scheduler.Fail("the thread uses memory that was freed");
        }
        ExpectOrder(cell.written <= clock[cell.writer], now, cell.writer, "written");
        if (!writes) {
            cell.read[self] = clock[self];
            continue;
        }
        for (std::size_t i = 0; i < MaxThreads; ++i) {
            ExpectOrder(cell.read[i] <= clock[i], now, i, "read");
        }
        cell.written = clock[self];
        cell.writer = static_cast<std::uint8_t>(self);
    }
}

void ExpectAlive(const Object& object)
{
    if (Owns(object.address) && Find(NumberOf(object.address))->freed) {
        scheduler.Fail(std::string("the thread uses a ") + object.kind + " that was destroyed");
    }
}

}  // namespace EXPLORER::MEMORY
