#include "Continuation.h"

#include <limits>

#include "HttpDate.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// A weak one, which begins with W/, does not promise the same bytes.
bool IsStrongTag(const std::string& tag)
{
    return tag.size() >= 2 && tag.front() == '"' && tag.back() == '"';
}

// Last-Modified counts seconds, so a body may change twice under one value. It is strong if the
// response was made so much later that the second is over on every clock involved.
bool IsStrongDate(const HeaderCollector& header, const std::string& lastModified)
{
    constexpr std::int64_t clockSkew = 60;
    const auto modified = ParseHttpDate(lastModified);
    const auto date = ParseHttpDate(header.Value("Date").value_or(""));
    return modified && date && *date - *modified >= clockSkew;
}

std::optional<std::uint64_t> LengthOfBody(const HeaderCollector& header)
{
    return header.Count("Transfer-Encoding") == 0
               ? ParseNumber(header.Value("Content-Length").value_or(""))
               : std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> ParseNumber(const std::string& text)
{
    if (text.empty()) {
        return std::nullopt;
    }
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t number = 0;
    for (const char c : text) {
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (c < '0' || c > '9' || number > (most - digit) / 10) {
            return std::nullopt;
        }
        number = number * 10 + digit;
    }
    return number;
}

std::optional<ContentRange> ContentRange::Parse(const std::string& value)
{
    const std::string unit = "bytes ";
    const std::size_t slash = value.find('/');
    if (value.compare(0, unit.size(), unit) != 0 || slash == std::string::npos) {
        return std::nullopt;
    }
    ContentRange range;
    const std::string total = value.substr(slash + 1);
    range.total = ParseNumber(total);
    if (!range.total && total != "*") {
        return std::nullopt;
    }
    const std::string bytes = value.substr(unit.size(), slash - unit.size());
    if (bytes == "*") {
        return range.total ? std::optional<ContentRange>(range) : std::nullopt;
    }
    const std::size_t dash = bytes.find('-');
    if (dash == std::string::npos) {
        return std::nullopt;
    }
    range.first = ParseNumber(bytes.substr(0, dash));
    range.last = ParseNumber(bytes.substr(dash + 1));
    const bool isOrdered = range.first && range.last && *range.first <= *range.last &&
                           (!range.total || *range.last < *range.total);
    return isOrdered ? std::optional<ContentRange>(range) : std::nullopt;
}

void Continuation::Begin(const HeaderCollector& header)
{
    const std::string tag = header.Value("ETag").value_or("");
    const std::string modified = header.Value("Last-Modified").value_or("");
    m_Validator.clear();
    m_IsTag = IsStrongTag(tag);
    if (m_IsTag) {
        m_Validator = tag;
    } else if (header.Count("ETag") == 0 && IsStrongDate(header, modified)) {
        m_Validator = modified;
    }
    m_Total = LengthOfBody(header);
}

void Continuation::Restore(const std::string& validator, std::uint64_t total)
{
    m_Validator = validator;
    m_IsTag = IsStrongTag(validator);
    m_Total = total;
}

bool Continuation::m_IsSameVersion(const HeaderCollector& header) const
{
    return header.Value(m_IsTag ? "ETag" : "Last-Modified").value_or("") == m_Validator;
}

// Remembers the first length that a response tells. One that tells none contradicts nothing.
bool Continuation::m_IsSameLength(const std::optional<std::uint64_t>& total)
{
    if (!m_Total) {
        m_Total = total;
    }
    return !total || *total == *m_Total;
}

Continuation::Verdict Continuation::Judge(const HeaderCollector& header, std::uint64_t delivered)
{
    switch (header.Status()) {
        case 206:
            return m_JudgePart(header, delivered);
        case 200:  // the server does not continue, or has another version
            return m_IsSameVersion(header) && m_IsSameLength(LengthOfBody(header))
                       ? Verdict::Whole
                       : Verdict::Changed;
        case 416: {  // there are no bytes from there on: the body ended where it broke off
            const auto range = ContentRange::Parse(header.Value("Content-Range").value_or(""));
            const bool isOther = m_IsTag && header.Count("ETag") > 0 && !m_IsSameVersion(header);
            const bool isWhole = !isOther && range && !range->first && range->total == delivered &&
                                 m_IsSameLength(range->total);
            return isWhole ? Verdict::Complete : Verdict::Changed;
        }
        default:
            return Verdict::Changed;
    }
}

// A server that ignores If-Range sends a part of whatever version it has. So a part must repeat the
// ETag. It may leave out Last-Modified, which HTTP then lets servers do.
Continuation::Verdict Continuation::m_JudgePart(const HeaderCollector& header,
                                                std::uint64_t delivered)
{
    const bool mustMatch = m_IsTag || header.Count("Last-Modified") > 0;
    if (mustMatch && !m_IsSameVersion(header)) {
        return Verdict::Changed;
    }
    const auto range = ContentRange::Parse(header.Value("Content-Range").value_or(""));
    if (!range || range->first != delivered) {
        return Verdict::Invalid;
    }
    if (!m_IsSameLength(range->total)) {
        return Verdict::Changed;
    }
    // A part that ends early would leave a gap that nobody notices.
    return m_Total && *range->last + 1 == *m_Total ? Verdict::Rest : Verdict::Invalid;
}

}  // namespace KIT
}  // namespace VORTAN_MW
