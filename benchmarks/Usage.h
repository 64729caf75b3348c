#pragma once

#include <chrono>

// What this process has taken so far.

// With all its threads, those that have ended included.
std::chrono::microseconds CpuTime();

// In KiB.
long ResidentMemory();

// The most that was resident, in KiB. getrusage and wait4 would not do: what they tell is at least
// what the program had that started this one.
long PeakMemory();
