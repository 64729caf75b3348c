#include "report/Progress.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/Units.h"

namespace VORTAN_TRANSFER {

namespace {

constexpr std::chrono::seconds Window(5);

// A shorter one is no news.
constexpr std::chrono::seconds ShortestSilence(3);

// A part of the line, and how long it is kept where there is little room.
struct Part
{
    std::string text;
    int importance;
};

// Bytes that have moved in the direction that matters, and how many there will be.
struct Moved
{
    std::uint64_t bytes;
    std::optional<std::uint64_t> total;
    bool isUpload;
};

// An upload is what is waited for until its response arrives.
Moved MovedIn(const Progress& progress)
{
    const bool isUpload = progress.received == 0 && (progress.sent > 0 || progress.toSend);
    return isUpload ? Moved{progress.sent, progress.toSend, true}
                    : Moved{progress.received, progress.total, false};
}

void AddShare(std::vector<Part>& parts, const Moved& moved)
{
    std::string bytes = Size(static_cast<double>(moved.bytes));
    if (moved.isUpload) {
        bytes.insert(0, "sent ");
    }
    if (!moved.total || *moved.total < moved.bytes || *moved.total == 0) {
        parts.push_back({bytes, 4});
        return;
    }
    const auto total = static_cast<double>(*moved.total);
    parts.push_back({bytes + " of " + Size(total), 3});
    const double share = 100 * static_cast<double>(moved.bytes) / total;
    parts.push_back({Format("%.0f%%", std::floor(share)), 6});
}

// What is going on: bytes arrive, or something is waited for.
void AddPace(std::vector<Part>& parts, const Progress& progress, const Moved& moved,
             double bytesPerSecond)
{
    if (progress.wait) {
        parts.push_back(
            {Format("waiting %lld s", static_cast<long long>(progress.wait->count())), 5});
        return;
    }
    if (progress.silence >= ShortestSilence) {
        parts.push_back(
            {Format("silent for %lld s", static_cast<long long>(progress.silence.count())), 5});
        return;
    }
    if (moved.total && *moved.total > 0 && *moved.total >= moved.bytes && bytesPerSecond > 0) {
        const auto left = static_cast<double>(*moved.total - moved.bytes);
        parts.push_back({Duration(left / bytesPerSecond) + " left", 1});
    }
    parts.push_back({Size(bytesPerSecond) + "/s", 2});
}

std::string Joined(const std::vector<Part>& parts)
{
    std::string line;
    for (const Part& part : parts) {
        line += (line.empty() ? "" : ", ") + part.text;
    }
    return line;
}

}  // namespace

void RateMeter::Add(TimePoint time, std::uint64_t moved)
{
    m_Samples.push_back({time, moved});
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
    return seconds > 0 ? static_cast<double>(last.moved - first.moved) / seconds : 0;
}

std::string ProgressLine(const Progress& progress, double bytesPerSecond, std::size_t room)
{
    std::vector<Part> parts;
    const Moved moved = MovedIn(progress);
    AddShare(parts, moved);
    AddPace(parts, progress, moved, bytesPerSecond);
    if (progress.transfers > 1) {
        parts.push_back({Format("%zu of %zu done", progress.ended, progress.transfers), 3});
    }
    const auto isLess = [](const Part& one, const Part& other) {
        return one.importance < other.importance;
    };
    while (parts.size() > 1 && Joined(parts).size() > room) {
        parts.erase(std::min_element(parts.begin(), parts.end(), isLess));
    }
    return Joined(parts);
}

}  // namespace VORTAN_TRANSFER
