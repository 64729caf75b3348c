#include "RetryRule.h"

#include <unistd.h>

#include <algorithm>
#include <limits>
#include <random>

#include "HttpDate.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// The largest number of seconds that still counts as a wait; it is beyond any policy.
constexpr std::int64_t MostSeconds = std::int64_t{1} << 40;

std::optional<std::int64_t> ParseSeconds(const std::string& value)
{
    if (value.empty() || value.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    std::int64_t seconds = 0;
    for (const char digit : value) {
        seconds = std::min(MostSeconds, seconds * 10 + (digit - '0'));
    }
    return seconds;
}

std::uint64_t SystemSeed()
{
    try {
        std::random_device device;
        return std::uint64_t{device()} << 32 | device();
    } catch (const std::exception&) {
        const auto now = std::chrono::high_resolution_clock::now().time_since_epoch().count();
        return static_cast<std::uint64_t>(now) ^ static_cast<std::uint64_t>(getpid()) << 40;
    }
}

}  // namespace

std::optional<Milliseconds> ParseRetryAfter(const std::string& value, std::int64_t nowSeconds)
{
    std::optional<std::int64_t> seconds = ParseSeconds(value);
    if (!seconds) {
        const std::optional<std::int64_t> date = ParseHttpDate(value);
        if (!date) {
            return std::nullopt;
        }
        seconds = std::clamp(*date - nowSeconds, std::int64_t{0}, MostSeconds);
    }
    return Milliseconds(*seconds * 1000);
}

JitterSource::JitterSource(std::optional<std::uint64_t> seed) : m_State(seed ? *seed : SystemSeed())
{}

// SplitMix64: small, and the same on every toolchain, unlike the distributions of <random>.
Milliseconds JitterSource::Draw(Milliseconds longest)
{
    std::uint64_t number = 0;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_State += 0x9E3779B97F4A7C15U;
        number = m_State;
    }
    number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9U;
    number = (number ^ number >> 27) * 0x94D049BB133111EBU;
    number ^= number >> 31;
    // A wait has far fewer than 2^32 values: the remainder's bias does not matter.
    return Milliseconds(number % (static_cast<std::uint64_t>(longest.count()) + 1));
}

bool RetryBudget::Take(SteadyTime now)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto periods = std::max<std::int64_t>(0, (now - m_RefilledAt) / m_Period);
    const auto missing = std::int64_t{m_Capacity} - m_Left;
    m_Left += static_cast<std::uint32_t>(std::min<std::int64_t>(periods, missing));
    m_RefilledAt += periods * m_Period;
    if (m_Left == 0) {
        return false;
    }
    --m_Left;
    return true;
}

void RetryBudget::GiveBack()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Left = std::min(m_Capacity, m_Left + 1);
}

std::optional<Milliseconds> RetryRule::Next(const FailedAttempt& attempt, SteadyTime now,
                                            Milliseconds left)
{
    if (attempt.delivered) {
        m_Waits = 0;
    } else {
        ++m_Attempts;
    }
    const bool hasAttempt = attempt.delivered || m_Attempts < m_Policy.attempts;
    if (!attempt.mayPass || !attempt.isRepeatable || !hasAttempt || m_Policy.attempts == 1) {
        return std::nullopt;
    }
    if (attempt.retryAfter && *attempt.retryAfter > m_Policy.longestBackoff) {
        return std::nullopt;
    }
    // On top of what the server asks for, so that those whom it told the same time do not come back
    // at once.
    const Milliseconds wait =
        attempt.retryAfter.value_or(Milliseconds(0)) + m_Jitter.Draw(m_LongestWait());
    if (wait >= left) {
        return std::nullopt;
    }
    if (!attempt.delivered && !m_Budget.Take(now)) {
        return std::nullopt;
    }
    ++m_Waits;
    return wait;
}

Milliseconds RetryRule::m_LongestWait() const
{
    Milliseconds longest = m_Policy.backoff;
    for (std::uint32_t n = 0; n < m_Waits && longest < m_Policy.longestBackoff; ++n) {
        longest *= 2;
    }
    return std::min(longest, m_Policy.longestBackoff);
}

}  // namespace KIT
}  // namespace VORTAN_MW
