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

std::optional<std::string> ResponseHeader::Field(const std::string& name) const
{
    const auto found = m_Fields.find(name);
    return found == m_Fields.end() ? std::nullopt : std::optional(found->second);
}

bool ResponseHeader::TellsEnd() const
{
    return Field("content-length") || Field("transfer-encoding");
}

std::optional<std::uint64_t> ResponseHeader::BodyLength() const
{
    const bool isEncoded = LowerCase(Field("content-encoding").value_or("identity")) != "identity";
    return isEncoded || Field("transfer-encoding")
               ? std::nullopt
               : ParseLength(Field("content-length").value_or(""));
}

void ResponseHeader::m_TakeLine(std::string_view line)
{
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    if (line.empty()) {
        m_HasEnded = true;
    } else if (line.substr(0, 5) == "HTTP/") {  // it begins another response
        m_Fields.clear();
        m_HasEnded = false;
        const auto status = Trimmed(line.substr(std::min(line.find(' '), line.size())));
        m_IsInterim = status.substr(0, 1) == "1";
    } else if (const std::size_t colon = line.find(':'); colon != std::string_view::npos) {
        m_Fields[LowerCase(line.substr(0, colon))] = Trimmed(line.substr(colon + 1));
    }
}

}  // namespace VORTAN_TRANSFER
