#pragma once

#include <string>

#include "trace/Timeline.h"

namespace VORTAN_TRANSFER {

// Draws a bar for each source over a common axis of time, as an SVG document.
std::string DrawTimeline(const Timeline& timeline);

}  // namespace VORTAN_TRANSFER
