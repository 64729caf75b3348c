#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace VORTAN_TRANSFER {

// Finds out from raw response headers how many bytes the body will have. Of several responses
// (those before a redirect, interim ones) the last counts.
class ResponseLength
{
public:
    // Pieces of header lines, cut anywhere.
    void Add(std::string_view bytes);

    // Nothing if the server does not say, or says it of the body's encoded form.
    std::optional<std::uint64_t> Bytes() const;

private:
    void m_TakeLine(std::string_view line);

    std::string m_Line;  // begun and not ended
    std::optional<std::uint64_t> m_Length;
    bool m_Encoded = false;
};

}  // namespace VORTAN_TRANSFER
