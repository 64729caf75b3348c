#include "transfer/ResponseHeader.h"

#include <algorithm>
#include <charconv>

#include "base/Text.h"

namespace VORTAN_TRANSFER {

namespace {

std::optional<std::uint64_t> ParseLength(std::string_view text)
{
    std::uint64_t length = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, length);
    return error == std::errc() && end == last ? std::optional(length) : std::nullopt;
}

}  // namespace

void ResponseHeader::Add(std::string_view bytes)
{
    m_Line += bytes;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = m_Line.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        m_TakeLine(std::string_view(m_Line).substr(begin, end - begin));
    }
    m_Line.erase(0, begin);
}

std::optional<std::uint64_t> ResponseHeader::BodyLength() const
{
    return m_Encoded ? std::nullopt : m_Length;
}

void ResponseHeader::m_TakeLine(std::string_view line)
{
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    if (line.empty()) {
        m_HasEnded = true;
    } else if (line.substr(0, 5) == "HTTP/") {
        m_TakeStatusLine(line);
    } else if (const std::size_t colon = line.find(':'); colon != std::string_view::npos) {
        m_TakeField(LowerCase(line.substr(0, colon)), Trimmed(line.substr(colon + 1)));
    }
}

// It begins another response.
void ResponseHeader::m_TakeStatusLine(std::string_view line)
{
    m_Length.reset();
    m_Encoded = false;
    m_HasEnded = false;
    const std::string_view status = Trimmed(line.substr(std::min(line.find(' '), line.size())));
    m_IsInterim = status.substr(0, 1) == "1";
}

void ResponseHeader::m_TakeField(std::string_view name, std::string_view value)
{
    if (name == "content-length") {
        m_Length = ParseLength(value);
    } else if (name == "content-encoding") {
        m_Encoded = LowerCase(value) != "identity";
    } else if (name == "transfer-encoding") {
        m_Encoded = true;
    }
}

}  // namespace VORTAN_TRANSFER
