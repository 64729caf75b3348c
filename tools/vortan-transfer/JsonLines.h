#pragma once

#include <cstddef>
#include <string>

#include "Arguments.h"
#include "Outcome.h"
#include "TraceEvent.h"

namespace VORTAN_TRANSFER {

// For programs: one line that holds a JSON object. It is plain ASCII, so that it is valid wherever
// it goes; bytes that are no UTF-8 are replaced by U+FFFD.

// What became of a job.
std::string JsonLineOf(std::size_t index, const Job& job, const Outcome& outcome);

std::string JsonLineOf(const TraceEvent& event);

}  // namespace VORTAN_TRANSFER
