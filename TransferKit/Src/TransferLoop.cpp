#include "TransferLoop.h"

#include <algorithm>

namespace VORTAN_MW {
namespace KIT {

using Milliseconds = std::chrono::milliseconds;

TransferLoop::Watcher::~Watcher() = default;

TransferLoop::TransferLoop(PooledHandle& handle, StopListener& listener, const Policy& policy,
                           Time deadline, Watcher& watcher)
    : m_Handle(handle),
      m_Listener(listener),
      m_Policy(policy),
      m_Deadline(deadline),
      m_Watcher(watcher),
      m_Begin(std::chrono::steady_clock::now())
{}

TransferLoop::End TransferLoop::Run()
{
    // libcurl divides its own limit among the addresses of a host, so it must know one. The loop's
    // comes first, because it does not lose track of a look-up that is under way.
    constexpr long later = 250;
    SetOption<CURLOPT_CONNECTTIMEOUT_MS>(m_Handle.Easy(),
                                         static_cast<long>(m_Policy.connecting.count()) + later);
    const StopListener::Attachment attachment(m_Listener, m_Handle.Multi());
    if (m_Handle.Attach() != CURLM_OK) {
        throw std::bad_alloc();
    }
    End end = End::Done;
    try {
        end = m_Drive();
    } catch (...) {
        m_Handle.Detach();
        throw;
    }
    const bool isLookingUp = end != End::Done && m_HasBegun && !m_IsConnected &&
                             GetOffset<CURLINFO_NAMELOOKUP_TIME_T>(m_Handle.Easy()) == 0;
    if (isLookingUp) {
        m_Handle.Abandon();
    } else {
        m_Handle.Detach();
    }
    return end;
}

TransferLoop::End TransferLoop::m_Drive()
{
    while (!m_Listener.IsStopped()) {
        if (m_Perform()) {
            return End::Done;
        }
        const Time now = std::chrono::steady_clock::now();
        const Milliseconds left = m_Left(now);
        if (left.count() <= 0 || m_IsTooSlow(now)) {
            return End::TooLate;
        }
        constexpr Milliseconds longest = std::chrono::hours(1);
        const Milliseconds untilCall =
            m_CallAt ? std::chrono::ceil<Milliseconds>(std::max(*m_CallAt, now) - now) : longest;
        curl_multi_poll(m_Handle.Multi(), nullptr, 0,
                        static_cast<int>(std::min({left, untilCall, longest}).count()), nullptr);
    }
    return End::Stopped;
}

// True when the request is over.
bool TransferLoop::m_Perform()
{
    int running = 0;
    m_HasBegun = true;
    if (curl_multi_perform(m_Handle.Multi(), &running) != CURLM_OK) {
        m_Code = CURLE_FAILED_INIT;
        return true;
    }
    m_Observe();
    if (running > 0) {
        return false;
    }
    int queued = 0;
    const CURLMsg* const message = curl_multi_info_read(m_Handle.Multi(), &queued);
    m_Code = message ? message->data.result : CURLE_FAILED_INIT;
    return true;
}

void TransferLoop::m_Observe()
{
    CURL* const easy = m_Handle.Easy();
    if (!m_IsConnected && GetOffset<CURLINFO_PRETRANSFER_TIME_T>(easy) > 0) {
        m_IsConnected = true;
        m_Watcher.OnConnected();
        m_ConnectedAt = std::chrono::steady_clock::now();
        m_MovedAt = m_ConnectedAt;
    }
    const curl_off_t moved =
        GetOffset<CURLINFO_SIZE_DOWNLOAD_T>(easy) + GetOffset<CURLINFO_SIZE_UPLOAD_T>(easy) +
        GetLong<CURLINFO_HEADER_SIZE>(easy) + GetLong<CURLINFO_REQUEST_SIZE>(easy);
    const Time now = std::chrono::steady_clock::now();
    const bool hasMoved = moved != m_Moved;
    if (!hasMoved && (!m_CallAt || now < *m_CallAt)) {
        return;
    }
    m_Moved = moved;
    const std::optional<Milliseconds> wait = m_Watcher.OnMoved();
    const Time after = std::chrono::steady_clock::now();
    m_CallAt = wait ? std::optional<Time>(after + *wait) : std::nullopt;
    m_MovedAt = hasMoved ? after : m_MovedAt + (after - now);  // the watcher's time does not count
}

Milliseconds TransferLoop::m_Left(Time now) const
{
    const Time limit = m_IsConnected ? m_MovedAt + m_Policy.silence : m_Begin + m_Policy.connecting;
    // Rounded up: a poll of 0 ms until the limit would be a busy wait.
    return std::chrono::ceil<Milliseconds>(std::min(limit, m_Deadline) - now);
}

bool TransferLoop::m_IsTooSlow(Time now) const
{
    if (m_Policy.lowestSpeed == 0 || !m_IsConnected || now - m_ConnectedAt < m_Policy.silence) {
        return false;
    }
    const double seconds = std::chrono::duration<double>(now - m_ConnectedAt).count();
    return static_cast<double>(m_Moved) < static_cast<double>(m_Policy.lowestSpeed) * seconds;
}

}  // namespace KIT
}  // namespace VORTAN_MW
