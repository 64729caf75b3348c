#include "StopSignal.h"

#include <unistd.h>

namespace VORTAN_MW {
namespace KIT {

void StopListener::Stop()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Stopped = true;
    m_Wakeup.notify_all();
    if (m_Multi) {
        curl_multi_wakeup(m_Multi);
    }
}

bool StopListener::IsStopped() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Stopped;
}

bool StopListener::WaitFor(std::chrono::milliseconds time)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    return m_Wakeup.wait_for(lock, time, [this] { return m_Stopped; });
}

StopListener::Attachment::Attachment(StopListener& listener, CURLM* multi) : m_Listener(listener)
{
    const std::lock_guard<std::mutex> lock(m_Listener.m_Mutex);
    m_Listener.m_Multi = multi;
}

StopListener::Attachment::~Attachment()
{
    const std::lock_guard<std::mutex> lock(m_Listener.m_Mutex);
    m_Listener.m_Multi = nullptr;
}

StopSource::StopSource() : m_Process(getpid()) {}

bool StopSource::m_IsOfThisProcess() const
{
    return m_Process == getpid();
}

void StopSource::Stop()
{
    if (!m_IsOfThisProcess()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Stopped = true;
    for (Registration* each = m_First; each; each = each->m_Next) {
        each->m_Listener.Stop();
    }
}

StopSource::Registration::Registration(StopSource& source, StopListener& listener)
    : m_Source(source), m_Listener(listener)
{
    if (!m_Source.m_IsOfThisProcess()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_Source.m_Mutex);
    m_Next = m_Source.m_First;
    if (m_Next) {
        m_Next->m_Previous = this;
    }
    m_Source.m_First = this;
    if (m_Source.m_Stopped) {
        m_Listener.Stop();
    }
}

StopSource::Registration::~Registration()
{
    if (!m_Source.m_IsOfThisProcess()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_Source.m_Mutex);
    (m_Previous ? m_Previous->m_Next : m_Source.m_First) = m_Next;
    if (m_Next) {
        m_Next->m_Previous = m_Previous;
    }
}

}  // namespace KIT
}  // namespace VORTAN_MW
