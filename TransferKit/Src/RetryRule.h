#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "PolicyData.h"

namespace VORTAN_MW {
namespace KIT {

using Milliseconds = std::chrono::milliseconds;
using SteadyTime = std::chrono::steady_clock::time_point;

// The wait that a Retry-After field asks for, given as seconds or as a date; nothing if it is
// neither. A date that has passed asks for no wait. nowSeconds counts from 1970.
std::optional<Milliseconds> ParseRetryAfter(const std::string& value, std::int64_t nowSeconds);

// The random numbers of a session (SplitMix64). Any thread may draw.
class JitterSource
{
public:
    // Without a seed: from the system.
    explicit JitterSource(std::optional<std::uint64_t> seed);

    // Evenly distributed from 0 to longest, both included.
    Milliseconds Draw(Milliseconds longest);

private:
    std::mutex m_Mutex;
    std::uint64_t m_State;  // guarded by m_Mutex
};

// How many further attempts the transfers of a session may still have. Any thread may take.
class RetryBudget
{
public:
    RetryBudget(std::uint32_t capacity, Milliseconds period, SteadyTime now)
        : m_Capacity(capacity), m_Period(period), m_Left(capacity), m_RefilledAt(now)
    {}

    bool Take(SteadyTime now);
    // A transfer has succeeded.
    void GiveBack();

private:
    const std::uint32_t m_Capacity;
    const Milliseconds m_Period;
    std::mutex m_Mutex;
    std::uint32_t m_Left;     // guarded by m_Mutex
    SteadyTime m_RefilledAt;  // guarded by m_Mutex
};

// Decides for one transfer whether a failed attempt is followed by another, and when.
class RetryRule
{
public:
    struct FailedAttempt
    {
        bool mayPass = false;       // the failure is of a kind that may pass
        bool isRepeatable = false;  // the request may be sent again, from where the client stands
        bool delivered = false;     // the attempt delivered a byte of the body
        std::optional<Milliseconds> retryAfter;
    };

    RetryRule(const Policy& policy, RetryBudget& budget, JitterSource& jitter)
        : m_Policy(policy), m_Budget(budget), m_Jitter(jitter)
    {}

    // The wait before the next attempt, which takes its share of the budget; nothing if there is
    // no further attempt. left is the time that the transfer has.
    std::optional<Milliseconds> Next(const FailedAttempt& attempt, SteadyTime now,
                                     Milliseconds left);

private:
    Milliseconds m_LongestWait() const;

    const Policy& m_Policy;
    RetryBudget& m_Budget;
    JitterSource& m_Jitter;
    std::uint32_t m_Attempts = 0;  // counted ones that failed
    std::uint32_t m_Waits = 0;     // since the last byte
};

}  // namespace KIT
}  // namespace VORTAN_MW
