#include "HandlePool.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace VORTAN_MW {
namespace KIT {

PooledHandle::PooledHandle() : m_Multi(curl_multi_init()), m_Easy(curl_easy_init())
{
    if (!m_Multi || !m_Easy) {
        throw std::bad_alloc();
    }
}

PooledHandle::~PooledHandle()
{
    Detach();
}

void PooledHandle::Reset()
{
    m_Tls.Reset();
    curl_easy_reset(m_Easy.get());
    SetOption<CURLOPT_NOSIGNAL>(m_Easy.get(), 1L);
    SetOption<CURLOPT_QUICK_EXIT>(m_Easy.get(), 1L);
    SetOption<CURLOPT_OPENSOCKETFUNCTION>(m_Easy.get(), &s_OpenSocket);
    SetOption<CURLOPT_OPENSOCKETDATA>(m_Easy.get(), static_cast<void*>(this));
}

CURLMcode PooledHandle::Attach()
{
    const CURLMcode code = curl_multi_add_handle(m_Multi.get(), m_Easy.get());
    m_IsAttached = code == CURLM_OK;
    return code;
}

void PooledHandle::Detach()
{
    if (m_IsAttached) {
        curl_multi_remove_handle(m_Multi.get(), m_Easy.get());
        m_IsAttached = false;
    }
}

void PooledHandle::Abandon()
{
    m_IsAbandoned = true;
    // What belongs to the transfer is gone soon.
    curl_easy_setopt(m_Easy.get(), CURLOPT_HTTPHEADER, nullptr);
}

bool PooledHandle::IsLookingUp()
{
    if (!m_IsAbandoned) {
        return false;
    }
    int running = 0;
    if (curl_multi_perform(m_Multi.get(), &running) == CURLM_OK && running > 0) {
        return true;
    }
    Detach();
    m_IsAbandoned = false;
    return false;
}

curl_socket_t PooledHandle::s_OpenSocket(void* self, curlsocktype, curl_sockaddr* address)
{
    if (static_cast<PooledHandle*>(self)->m_IsAbandoned) {
        return CURL_SOCKET_BAD;
    }
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

HandlePool::HandlePool() : m_Process(getpid()) {}

bool HandlePool::IsOfThisProcess() const
{
    return m_Process == getpid();
}

HandlePool::~HandlePool()
{
    if (!IsOfThisProcess()) {
        for (auto* const handles : {&m_Idle, &m_Abandoned}) {
            for (PooledHandlePtr& handle : *handles) {
                static_cast<void>(handle.release());
            }
        }
    }
}

PooledHandlePtr HandlePool::Take(const std::string& origin)
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_CollectFinishedLookups();
        const auto found =
            std::find_if(m_Idle.rbegin(), m_Idle.rend(),
                         [&origin](const auto& handle) { return handle->Origin() == origin; });
        const auto chosen = found == m_Idle.rend() ? m_Idle.rbegin() : found;
        // A handle with a kept connection looks nothing up.
        if (found == m_Idle.rend() && m_Abandoned.size() >= MostLookups) {
            return nullptr;
        }
        if (chosen != m_Idle.rend()) {
            PooledHandlePtr handle = std::move(*chosen);
            m_Idle.erase(std::next(chosen).base());
            return handle;
        }
    }
    return std::make_unique<PooledHandle>();
}

void HandlePool::GiveBack(PooledHandlePtr handle)
{
    PooledHandlePtr oldest;  // destroyed without the mutex
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (handle->IsAttached()) {
        m_Abandoned.push_back(std::move(handle));
        return;
    }
    m_Idle.push_back(std::move(handle));
    if (m_Idle.size() > MostIdle) {
        oldest = std::move(m_Idle.front());
        m_Idle.erase(m_Idle.begin());
    }
}

void HandlePool::m_CollectFinishedLookups()
{
    const auto finished =
        std::partition(m_Abandoned.begin(), m_Abandoned.end(),
                       [](const PooledHandlePtr& handle) { return handle->IsLookingUp(); });
    for (auto each = finished; each != m_Abandoned.end(); ++each) {
        if (m_Idle.size() < MostIdle) {
            m_Idle.insert(m_Idle.begin(), std::move(*each));
        }
    }
    m_Abandoned.erase(finished, m_Abandoned.end());
}

std::size_t HandlePool::CountOfIdle() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Idle.size();
}

std::size_t HandlePool::CountOfLookups()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_CollectFinishedLookups();
    return m_Abandoned.size();
}

}  // namespace KIT
}  // namespace VORTAN_MW
