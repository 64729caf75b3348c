// Touches a guarded member, once as it must be done and once as it must not. Compiled by a test.

#include "AsyncTransferAgentManagerState.h"

namespace VORTAN_MW {

class AsyncTransferAgentManagerPeer
{
public:
    static void Terminate(AsyncTransferAgentManager& manager)
    {
#if VORTAN_WITH_MUTEX
        const AsyncTransferAgentManager::State::MutexScope scope(*manager.m_State);
#endif
        manager.m_State->terminating = true;
    }
};

}  // namespace VORTAN_MW
