#pragma once

#include <cstdint>

#include "EventData.h"

namespace VORTAN_MW {
namespace KIT {

// The lines that failures have in the log. Without memory for a line there is none: the observer
// and the result tell of the failure, too.

// event: as it is reported before the wait.
void LogRetry(const EventRecord& event);

// Writes nothing of a success, or of a transfer that was cancelled before its first attempt.
void LogFailure(const Outcome& outcome, std::uint32_t attempts);

}  // namespace KIT
}  // namespace VORTAN_MW
