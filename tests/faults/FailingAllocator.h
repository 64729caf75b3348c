#pragma once

#include <cstddef>

// Replaces the program's operator new and operator delete, so that one allocation can be made to
// fail, on whichever thread it happens.
namespace FAILING_ALLOCATOR {

// The number-th allocation from now on fails, counted from 1; none if it is 0.
void Arm(long number);

// None fails any more. Returns what did, or null.
const char* Disarm();

// How many allocations there are that nobody has freed.
long Live();

}  // namespace FAILING_ALLOCATOR
