#pragma once

#include <memory>

#include "Authorities.h"
#include "HandlePool.h"
#include "HttpSession.h"
#include "PolicyData.h"
#include "RetryRule.h"
#include "StopSignal.h"

namespace VORTAN_MW {
namespace KIT {

// What the transfers of a session share. The session, its factories and its handlers own it
// together.
struct SessionCore
{
    explicit SessionCore(const Policy& itsPolicy)
        : policy(itsPolicy),
          authorities(policy),
          jitter(policy.seed),
          budget(policy.retryBudget, policy.longestBackoff, std::chrono::steady_clock::now())
    {}

    const Policy policy;
    const Authorities authorities;
    JitterSource jitter;
    RetryBudget budget;
    StopSource stop;
    HandlePool pool;  // goes before the authorities that its handles use
};

// What the kit itself sees of a session.
class SessionAccess
{
public:
    static std::shared_ptr<SessionCore> Core(HttpSession& session);
};

}  // namespace KIT
}  // namespace VORTAN_MW
