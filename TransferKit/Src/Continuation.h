#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "HeaderCollector.h"

namespace VORTAN_MW {
namespace KIT {

// "bytes 5-9/10", "bytes 5-9/*" or "bytes */10".
struct ContentRange
{
    std::optional<std::uint64_t> first;
    std::optional<std::uint64_t> last;
    std::optional<std::uint64_t> total;

    static std::optional<ContentRange> Parse(const std::string& value);
};

// Decimal digits only, and no overflow.
std::optional<std::uint64_t> ParseNumber(const std::string& text);

// The version whose body a transfer receives, and how to ask for the rest of that version after the
// body broke off.
class Continuation
{
public:
    enum class Verdict
    {
        Rest,      // the body goes on with the first byte that is missing
        Whole,     // the same version from its first byte on
        Complete,  // nothing is missing
        Changed,   // another version, or the server does not say which
        Invalid,   // the response contradicts itself or the request
    };

    // Remembers the first response, whose status is 200.
    void Begin(const HeaderCollector& header);

    // Remembers a version that an earlier run has received a part of. validator is not empty.
    void Restore(const std::string& validator, std::uint64_t total);

    // Whether the server has named the version by something that tells it from every other one.
    bool IsPossible() const { return !m_Validator.empty(); }
    // For If-Range.
    const std::string& Validator() const { return m_Validator; }

    // What a response to a request for the bytes from delivered on means. Remembers the length of
    // the whole body where this is the first response to tell it.
    Verdict Judge(const HeaderCollector& header, std::uint64_t delivered);

    // Length of the whole body, if a response has told it.
    const std::optional<std::uint64_t>& Total() const { return m_Total; }

private:
    bool m_IsSameVersion(const HeaderCollector& header) const;
    bool m_IsSameLength(const std::optional<std::uint64_t>& total);
    Verdict m_JudgePart(const HeaderCollector& header, std::uint64_t delivered);

    std::string m_Validator;
    bool m_IsTag = false;
    std::optional<std::uint64_t> m_Total;
};

}  // namespace KIT
}  // namespace VORTAN_MW
