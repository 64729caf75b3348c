#pragma once

#include <cstddef>
#include <string>

#include "Arguments.h"
#include "Outcome.h"

namespace VORTAN_TRANSFER {

// What became of a job, for a program: one line that holds a JSON object. It is plain ASCII, so
// that it is valid wherever it goes; bytes that are no UTF-8 are replaced by U+FFFD.
std::string JsonLineOf(std::size_t index, const Job& job, const Outcome& outcome);

}  // namespace VORTAN_TRANSFER
