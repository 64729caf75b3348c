#include "Outage.h"

#include <deque>
#include <limits>
#include <memory>
#include <optional>
#include <queue>
#include <random>
#include <utility>
#include <vector>

#include "RetryRule.h"

namespace {

using VORTAN_MW::KIT::JitterSource;
using VORTAN_MW::KIT::Milliseconds;
using VORTAN_MW::KIT::Policy;
using VORTAN_MW::KIT::RetryBudget;
using VORTAN_MW::KIT::RetryRule;
using VORTAN_MW::KIT::SteadyTime;

constexpr std::uint32_t Hour = 3600;
constexpr Milliseconds UntilAnotherTransfer = std::chrono::minutes(5);

// A device's session, and the transfer that it performs.
class Device
{
public:
    Device(const Policy& policy, std::uint64_t seed)
        : m_Policy(policy),
          m_Jitter(seed),
          m_Budget(policy.retryBudget, policy.longestBackoff, SteadyTime())
    {
        m_Begin(Milliseconds(0));
    }

    Milliseconds WaitAfterFailure(Milliseconds now)
    {
        RetryRule::FailedAttempt attempt;
        attempt.mayPass = true;
        attempt.isRepeatable = true;
        const Milliseconds left = m_Policy.altogether - (now - m_Begun);
        const std::optional<Milliseconds> wait = m_Rule->Next(attempt, SteadyTime() + now, left);
        if (wait) {
            return *wait;
        }
        m_Begin(now + UntilAnotherTransfer);
        return UntilAnotherTransfer;
    }

private:
    void m_Begin(Milliseconds when)
    {
        m_Begun = when;
        m_Rule.emplace(m_Policy, m_Budget, m_Jitter);
    }

    const Policy& m_Policy;
    JitterSource m_Jitter;
    RetryBudget m_Budget;
    std::optional<RetryRule> m_Rule;
    Milliseconds m_Begun{0};
};

struct KitFleet
{
    KitFleet(std::uint32_t count, std::uint32_t origin)
    {
        policy.attempts = std::numeric_limits<std::uint32_t>::max();
        std::mt19937_64 seeds(origin);
        for (std::uint32_t i = 0; i < count; ++i) {
            all.emplace_back(policy, seeds());
        }
    }

    Policy policy;
    std::deque<Device> all;
};

}  // namespace

WaitAfterFailure FixedDelay(std::chrono::milliseconds delay)
{
    return [delay](std::uint32_t, Milliseconds) { return delay; };
}

WaitAfterFailure KitsRule(std::uint32_t devices, std::uint32_t origin)
{
    return [fleet = std::make_shared<KitFleet>(devices, origin)](std::uint32_t device,
                                                                 Milliseconds now) {
        return fleet->all.at(device).WaitAfterFailure(now);
    };
}

Recovery Simulate(const Outage& outage, const WaitAfterFailure& waitAfterFailure)
{
    using Request = std::pair<std::int64_t, std::uint32_t>;  // when, in milliseconds; which device
    std::priority_queue<Request, std::vector<Request>, std::greater<>> requests;
    for (std::uint32_t device = 0; device < outage.devices; ++device) {
        // Spread evenly over the first second, as the transfers broke.
        const Milliseconds broken(std::uint64_t{device} * 1000 / outage.devices);
        requests.emplace((broken + waitAfterFailure(device, broken)).count(), device);
    }
    const std::int64_t end = std::int64_t{outage.seconds} * 1000;
    Recovery recovery;
    recovery.requests.resize(Hour);
    while (!requests.empty() && requests.top().first < end + std::int64_t{Hour} * 1000) {
        const auto [when, device] = requests.top();
        requests.pop();
        bool isAnswered = false;
        if (when < end) {
            ++recovery.meanwhile;
        } else {
            const auto second = static_cast<std::uint32_t>((when - end) / 1000);
            isAnswered = ++recovery.requests[second] <= outage.capacity;
            recovery.seconds = second + 1;
        }
        if (!isAnswered) {
            const Milliseconds wait = waitAfterFailure(device, Milliseconds(when));
            requests.emplace(when + wait.count(), device);
        }
    }
    if (!requests.empty()) {
        recovery.seconds = Hour;
    }
    return recovery;
}
