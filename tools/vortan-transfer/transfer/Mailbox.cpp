#include "transfer/Mailbox.h"

#include <utility>

namespace VORTAN_TRANSFER {

void Mailbox::Post(Event event)
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Events.push_back(std::move(event));
    }
    m_Posted.notify_one();
}

std::vector<Event> Mailbox::Receive(const std::chrono::milliseconds* timeout)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    const auto hasEvents = [this] { return !m_Events.empty(); };
    if (timeout) {
        m_Posted.wait_for(lock, *timeout, hasEvents);
    } else {
        m_Posted.wait(lock, hasEvents);
    }
    return std::exchange(m_Events, {});
}

}  // namespace VORTAN_TRANSFER
