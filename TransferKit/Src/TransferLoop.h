#pragma once

#include <chrono>
#include <optional>

#include "HandlePool.h"
#include "PolicyData.h"
#include "StopSignal.h"

namespace VORTAN_MW {
namespace KIT {

// Performs one request on a handle until it is over, a limit is passed or the transfer is stopped.
class TransferLoop
{
public:
    using Time = std::chrono::steady_clock::time_point;

    enum class End
    {
        Done,     // libcurl is finished, see Code()
        Stopped,  // from outside
        TooLate,  // a limit of the policy's is passed
    };

    // Called on the transfer's thread whenever bytes may have moved.
    class Watcher
    {
    public:
        virtual ~Watcher();
        virtual void OnConnected() = 0;
        // Returns when to call it again although nothing has moved; nothing if not.
        virtual std::optional<std::chrono::milliseconds> OnMoved() = 0;
    };

    // deadline: when the whole transfer must be over.
    TransferLoop(PooledHandle& handle, StopListener& listener, const Policy& policy, Time deadline,
                 Watcher& watcher);

    // The request is set up. Afterwards the handle is detached, unless it is abandoned.
    End Run();

    CURLcode Code() const { return m_Code; }

private:
    End m_Drive();
    bool m_Perform();
    void m_Observe();
    // How long nothing needs to be looked at; not positive when a limit is passed.
    std::chrono::milliseconds m_Left(Time now) const;
    bool m_IsTooSlow(Time now) const;

    PooledHandle& m_Handle;
    StopListener& m_Listener;
    const Policy& m_Policy;
    const Time m_Deadline;
    Watcher& m_Watcher;
    const Time m_Begin;
    CURLcode m_Code = CURLE_OK;
    bool m_HasBegun = false;
    bool m_IsConnected = false;
    Time m_ConnectedAt;
    Time m_MovedAt;
    std::optional<Time> m_CallAt;  // the watcher, at the latest
    curl_off_t m_Moved = 0;
};

}  // namespace KIT
}  // namespace VORTAN_MW
