#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace VORTAN_TRANSFER {

// How far all transfers together have come.
struct Progress
{
    std::uint64_t received = 0;
    // Present when the length of every body is known.
    std::optional<std::uint64_t> total = std::nullopt;
    std::size_t ended = 0;
    std::size_t transfers = 1;
    // Uploads.
    std::uint64_t sent = 0;
    std::optional<std::uint64_t> toSend = std::nullopt;
    // Until the next attempt, if every running transfer waits for one.
    std::optional<std::chrono::seconds> wait = std::nullopt;
    // Since the last byte of any transfer.
    std::chrono::seconds silence{0};
};

// How fast bytes have moved lately.
class RateMeter
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // moved is the count of bytes up to that time, in both directions. Times do not decrease.
    void Add(TimePoint time, std::uint64_t moved);

    // 0 as long as there is nothing to compare.
    double BytesPerSecond() const;

private:
    struct Sample
    {
        TimePoint time;
        std::uint64_t moved;
    };

    std::deque<Sample> m_Samples;
};

// One line for a person, without control characters. What does not fit into the room is left out,
// the percentage last.
std::string ProgressLine(const Progress& progress, double bytesPerSecond, std::size_t room = 79);

}  // namespace VORTAN_TRANSFER
