#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace VORTAN_MW {
namespace KIT {

// Seconds since 1970 of a date in one of HTTP's three formats, or nothing. libcurl's parser returns
// a time_t, whose width may differ between libcurl and the kit on 32 bits.
std::optional<std::int64_t> ParseHttpDate(const std::string& text);

}  // namespace KIT
}  // namespace VORTAN_MW
