#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Curl.h"
#include "TlsContext.h"

namespace VORTAN_MW {
namespace KIT {

// An easy handle, which has the TLS sessions, with the multi handle that has the connections. One
// transfer uses it at a time.
class PooledHandle
{
public:
    // Throws std::bad_alloc.
    PooledHandle();
    PooledHandle(const PooledHandle&) = delete;
    PooledHandle& operator=(const PooledHandle&) = delete;
    ~PooledHandle();

    CURL* Easy() const { return m_Easy.get(); }
    CURLM* Multi() const { return m_Multi.get(); }
    TlsContext& Tls() { return m_Tls; }

    // Takes all options back but those that every request of the kit's has.
    void Reset();
    // Begins and ends a request.
    CURLMcode Attach();
    void Detach();
    bool IsAttached() const { return m_IsAttached; }

    // The request is given up while it waits for a name, which nothing can interrupt: the look-up's
    // thread is left to end, and no connection follows.
    void Abandon();
    // Whether an abandoned request is still waiting.
    bool IsLookingUp();

    // The last one that a request went to.
    const std::string& Origin() const { return m_Origin; }
    void SetOrigin(const std::string& origin) { m_Origin = origin; }

private:
    static curl_socket_t s_OpenSocket(void* self, curlsocktype purpose, curl_sockaddr* address);

    TlsContext m_Tls;  // outlives the connections
    const MultiHandle m_Multi;
    const EasyHandle m_Easy;
    bool m_IsAttached = false;
    bool m_IsAbandoned = false;
    std::string m_Origin;
};

using PooledHandlePtr = std::unique_ptr<PooledHandle>;

// The handles of a session that no transfer uses. Any thread may take and give back.
class HandlePool
{
public:
    HandlePool();
    HandlePool(const HandlePool&) = delete;
    HandlePool& operator=(const HandlePool&) = delete;
    // In a forked child it leaks the handles: closing their connections would end the parent's.
    ~HandlePool();

    bool IsOfThisProcess() const;

    // A handle, one that was connected to the origin if there is such a one. Null while too many
    // abandoned look-ups are under way. Throws std::bad_alloc.
    PooledHandlePtr Take(const std::string& origin);
    // May close connections. Takes abandoned handles, too.
    void GiveBack(PooledHandlePtr handle);

    std::size_t CountOfIdle() const;
    std::size_t CountOfLookups();

    static constexpr std::size_t MostIdle = 8;
    static constexpr std::size_t MostLookups = 8;

private:
    void m_CollectFinishedLookups();

    const long m_Process;
    mutable std::mutex m_Mutex;
    std::vector<PooledHandlePtr> m_Idle;       // guarded by m_Mutex; the last one is the youngest
    std::vector<PooledHandlePtr> m_Abandoned;  // guarded by m_Mutex
};

}  // namespace KIT
}  // namespace VORTAN_MW
