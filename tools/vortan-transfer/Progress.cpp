#include "Progress.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace VORTAN_TRANSFER {

namespace {

constexpr std::chrono::seconds Window(5);

template <typename... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

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

std::string Share(const Progress& progress, double bytesPerSecond)
{
    if (!progress.total || *progress.total < progress.received || *progress.total == 0) {
        return "";
    }
    const auto received = static_cast<double>(progress.received);
    const auto total = static_cast<double>(*progress.total);
    std::string share =
        " of " + Size(total) + Format(", %.0f%%", std::floor(100 * received / total));
    if (bytesPerSecond > 0) {
        share += ", " + Duration((total - received) / bytesPerSecond) + " left";
    }
    return share;
}

}  // namespace

void RateMeter::Add(TimePoint time, std::uint64_t received)
{
    m_Samples.push_back({time, received});
    while (m_Samples.size() > 2 && time - m_Samples.front().time > Window) {
        m_Samples.pop_front();
    }
}

double RateMeter::BytesPerSecond() const
{
    if (m_Samples.empty()) {
        return 0;
    }
    const Sample& first = m_Samples.front();
    const Sample& last = m_Samples.back();
    const double seconds = std::chrono::duration<double>(last.time - first.time).count();
    return seconds > 0 ? static_cast<double>(last.received - first.received) / seconds : 0;
}

std::string ProgressLine(const Progress& progress, double bytesPerSecond)
{
    std::string line = Size(static_cast<double>(progress.received));
    line += Share(progress, bytesPerSecond);
    line += ", " + Size(bytesPerSecond) + "/s";
    if (progress.transfers > 1) {
        line += Format(", %zu of %zu done", progress.ended, progress.transfers);
    }
    return line;
}

}  // namespace VORTAN_TRANSFER
