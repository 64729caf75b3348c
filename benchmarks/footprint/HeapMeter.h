#pragma once

#include <cstddef>

// Bytes that the program has allocated and not freed, as the allocator rounds them up, its own word
// for each block included.
struct HeapUse
{
    std::size_t cxx;    // by new: the agent, the client, the C++ library
    std::size_t other;  // by malloc and its kin: libcurl, what that uses, the C library
};

HeapUse operator-(const HeapUse& left, const HeapUse& right);

// At this moment.
HeapUse CurrentHeap();

// At the moment since ResetPeakHeap() when both together were the most.
HeapUse PeakHeap();
void ResetPeakHeap();
