#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the process unless the promise holds: that is what a fuzzer takes for a finding.
inline void Require(bool holds, const char* promise)
{
    if (!holds) {
        std::fprintf(stderr, "Broken promise: %s\n", promise);
        std::abort();
    }
}
