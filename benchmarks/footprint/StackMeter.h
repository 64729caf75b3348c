#pragma once

#include <cstddef>

// Every thread of the program gets a stack that was painted before, so that the paint that is left
// tells how deep the thread went. What it keeps on its stack besides its frames, its descriptor and
// its thread-local variables, counts as used: a stack must have room for that, too.

// The most that any thread so far has used. The threads must have ended.
std::size_t DeepestStack();
