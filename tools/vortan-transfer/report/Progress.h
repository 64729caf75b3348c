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

// How fast bytes have been arriving lately.
class RateMeter
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // received is the count up to that time. Times do not decrease.
    void Add(TimePoint time, std::uint64_t received);

    // 0 as long as there is nothing to compare.
    double BytesPerSecond() const;

private:
    struct Sample
    {
        TimePoint time;
        std::uint64_t received;
    };

    std::deque<Sample> m_Samples;
};

// One line for a person, at most 79 characters long, without control characters.
std::string ProgressLine(const Progress& progress, double bytesPerSecond);

}  // namespace VORTAN_TRANSFER
