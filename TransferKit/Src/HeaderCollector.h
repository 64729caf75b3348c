#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace VORTAN_MW {
namespace KIT {

// Collects the header lines of one request: of 1xx responses, which it drops, of the response and
// of its trailer.
class HeaderCollector
{
public:
    enum class State
    {
        Incomplete,  // the response's header lacks its empty line
        Complete,    // the empty line has just arrived
        InBody,      // a trailer line, after the header
        TooLong,     // there are more bytes than allowed
        Invalid,     // the line belongs to no HTTP response
    };

    // What Take returned last is not TooLong or Invalid. allowed: bytes of all lines.
    explicit HeaderCollector(std::uint64_t allowed) : m_Allowed(allowed) {}

    State Take(const char* line, std::size_t length);

    bool IsComplete() const { return m_IsComplete; }
    long Status() const { return m_Status; }
    // The response's header with its status line and empty line.
    const std::string& Block() const { return m_Block; }
    // The trailer's lines; empty if there is none.
    const std::string& Trailer() const { return m_Trailer; }
    // Bytes of all lines so far.
    std::uint64_t Length() const { return m_Length; }

    // The value of the only field of this name in the header, without the blanks around it.
    // Nothing if there is none or more than one, because then none can be relied upon.
    std::optional<std::string> Value(const std::string& name) const;
    // The number of fields of this name.
    std::size_t Count(const std::string& name) const;

private:
    bool m_TakeStatusLine(std::string_view line);

    const std::uint64_t m_Allowed;
    std::uint64_t m_Length = 0;
    bool m_IsComplete = false;
    long m_Status = 0;
    std::string m_Block;
    std::string m_Trailer;
};

}  // namespace KIT
}  // namespace VORTAN_MW
