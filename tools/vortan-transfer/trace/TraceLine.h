#pragma once

#include <string>

#include "trace/TraceEvent.h"

namespace VORTAN_TRANSFER {

// A line of the trace for programs: a JSON object.
std::string TraceLineOf(const TraceEvent& event);

}  // namespace VORTAN_TRANSFER
