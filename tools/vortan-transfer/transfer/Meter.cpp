#include "transfer/Meter.h"

namespace VORTAN_TRANSFER {

Meter::Reading Meter::Read() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Reading;
}

void Meter::AddReceived(std::uint64_t bytes)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Reading.received += bytes;
    m_Reading.lastByte = Clock::now();
}

void Meter::SetTotal(std::optional<std::uint64_t> total)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Reading.total = total;
}

void Meter::SetSent(std::uint64_t sent)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (sent != m_Reading.sent) {
        m_Reading.sent = sent;
        m_Reading.lastByte = Clock::now();
    }
}

void Meter::SetToSend(std::uint64_t bytes)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Reading.toSend = bytes;
}

void Meter::SetWait(std::optional<Clock::time_point> until)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Reading.waitsUntil = until;
}

}  // namespace VORTAN_TRANSFER
