#pragma once

#include <chrono>

// How long a test waits for what must happen before it gives up and says what did not. An emulated
// machine gets more time.
#ifdef __arm__
constexpr std::chrono::seconds Patience(120);
#else
constexpr std::chrono::seconds Patience(30);
#endif
