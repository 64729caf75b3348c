#include "report/Progress.h"

#include <cmath>

#include "base/Units.h"

namespace VORTAN_TRANSFER {

namespace {

constexpr std::chrono::seconds Window(5);

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
