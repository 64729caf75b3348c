#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace VORTAN_TRANSFER {

// Reads raw response headers. Of several responses (those before a redirect, interim ones) the last
// counts.
class ResponseHeader
{
public:
    // Pieces of header lines, cut anywhere.
    void Add(std::string_view bytes);

    // Whether the empty line at the end has arrived. A connection that closes before it leaves a
    // response that libcurl takes for a whole one without a body.
    bool IsWhole() const { return m_HasEnded && !m_IsInterim; }

    // How many bytes the body will have. Nothing if the server does not say, or says it of the
    // body's encoded form.
    std::optional<std::uint64_t> BodyLength() const;

private:
    void m_TakeLine(std::string_view line);
    void m_TakeStatusLine(std::string_view line);
    void m_TakeField(std::string_view name, std::string_view value);

    std::string m_Line;  // begun and not ended
    std::optional<std::uint64_t> m_Length;
    bool m_Encoded = false;
    bool m_IsInterim = false;
    bool m_HasEnded = false;
};

}  // namespace VORTAN_TRANSFER
