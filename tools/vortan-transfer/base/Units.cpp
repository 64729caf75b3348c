#include "base/Units.h"

#include <algorithm>

namespace VORTAN_TRANSFER {

std::string Size(double bytes)
{
    constexpr std::array<const char*, 7> units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr double step = 1024;
    std::size_t unit = 0;
    // 1023.95 would be rounded to 1024.0.
    while (bytes >= step - 0.05 && unit + 1 < units.size()) {
        bytes /= step;
        ++unit;
    }
    return Format(unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
}

std::string Duration(double seconds)
{
    constexpr double longest = 359999;  // 99 hours
    const auto whole = static_cast<unsigned>(std::min(seconds + 0.5, longest));
    const unsigned hours = whole / 3600;
    const unsigned minutes = whole / 60 % 60;
    return hours > 0 ? Format("%u:%02u:%02u", hours, minutes, whole % 60)
                     : Format("%u:%02u", minutes, whole % 60);
}

std::string ShortDuration(double seconds)
{
    // 59.9999 would be rounded to 60.000.
    return seconds < 59.9995 ? Format("%.3f s", seconds) : Duration(seconds);
}

}  // namespace VORTAN_TRANSFER
