#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace VORTAN_TRANSFER {

// Reads the fields of raw response headers. Of several responses (those before a redirect, interim
// ones) the last counts.
class ResponseHeader
{
public:
    // Pieces of header lines, cut anywhere.
    void Add(std::string_view bytes);

    // Whether the empty line at the end has arrived. Not every handler of the library sees that a
    // connection was closed before it.
    bool IsWhole() const { return m_HasEnded && !m_IsInterim; }

    // The value of a field; of several with one name, the last. name is in lower case.
    std::optional<std::string> Field(const std::string& name) const;

    // Whether the end of the body can be told from a connection that broke.
    bool TellsEnd() const;

    // How many bytes the body will have. Nothing if the server does not say, or says it of the
    // body's encoded form.
    std::optional<std::uint64_t> BodyLength() const;

private:
    void m_TakeLine(std::string_view line);

    std::string m_Line;                           // begun and not ended
    std::map<std::string, std::string> m_Fields;  // by their names in lower case
    bool m_IsInterim = false;
    bool m_HasEnded = false;
};

}  // namespace VORTAN_TRANSFER
