#include "ResponseLength.h"

#include <charconv>

#include "Text.h"

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

void ResponseLength::Add(std::string_view bytes)
{
    m_Line += bytes;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = m_Line.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        m_TakeLine(std::string_view(m_Line).substr(begin, end - begin));
    }
    m_Line.erase(0, begin);
}

std::optional<std::uint64_t> ResponseLength::Bytes() const
{
    return m_Encoded ? std::nullopt : m_Length;
}

void ResponseLength::m_TakeLine(std::string_view line)
{
    if (line.substr(0, 5) == "HTTP/") {
        m_Length.reset();
        m_Encoded = false;
        return;
    }
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return;
    }
    const std::string name = LowerCase(line.substr(0, colon));
    const std::string_view value = Trimmed(line.substr(colon + 1));
    if (name == "content-length") {
        m_Length = ParseLength(value);
    } else if (name == "content-encoding") {
        m_Encoded = LowerCase(value) != "identity";
    } else if (name == "transfer-encoding") {
        m_Encoded = true;
    }
}

}  // namespace VORTAN_TRANSFER
