#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

namespace VORTAN_TRANSFER {

// Counts what one transfer has moved. Any thread may use it.
class Meter
{
public:
    using Clock = std::chrono::steady_clock;

    struct Reading
    {
        std::uint64_t received = 0;
        std::optional<std::uint64_t> total;  // of the body, as far as it is received by this run
        std::uint64_t sent = 0;
        std::optional<std::uint64_t> toSend;
        std::optional<Clock::time_point> waitsUntil;  // the next attempt
        Clock::time_point lastByte = Clock::now();    // or the beginning
    };

    Reading Read() const;

    void AddReceived(std::uint64_t bytes);
    void SetTotal(std::optional<std::uint64_t> total);
    void SetSent(std::uint64_t sent);
    void SetToSend(std::uint64_t bytes);
    void SetWait(std::optional<Clock::time_point> until);

private:
    mutable std::mutex m_Mutex;
    Reading m_Reading;  // guarded by m_Mutex
};

}  // namespace VORTAN_TRANSFER
