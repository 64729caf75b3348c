#include "HeaderCollector.h"

#include <strings.h>

#include <cctype>
#include <cstring>

namespace VORTAN_MW {
namespace KIT {

namespace {

bool IsEmptyLine(std::string_view line)
{
    return line == "\r\n" || line == "\n";
}

std::string Trimmed(const std::string& text)
{
    constexpr const char* blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return std::string();
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Calls each(value) for each field of this name.
template <typename Each>
void ForEachField(const std::string& block, const std::string& name, const Each& each)
{
    const char* const last = block.data() + block.size();
    for (const char* line = block.data(); line != last;) {
        const auto left = static_cast<std::size_t>(last - line);
        const auto* const newline = static_cast<const char*>(std::memchr(line, '\n', left));
        const char* const end = newline ? newline + 1 : last;
        const bool isNamed = static_cast<std::size_t>(end - line) > name.size() &&
                             line[name.size()] == ':' &&
                             strncasecmp(line, name.c_str(), name.size()) == 0;
        if (isNamed) {
            each(Trimmed(std::string(line + name.size() + 1, end)));
        }
        line = end;
    }
}

}  // namespace

HeaderCollector::State HeaderCollector::Take(const char* line, std::size_t length)
{
    m_Length += length;
    if (m_Length > m_Allowed) {
        return State::TooLong;
    }
    const std::string_view text(line, length);
    if (m_IsComplete) {
        if (!IsEmptyLine(text)) {
            m_Trailer += text;
        }
        return State::InBody;
    }
    if (m_Block.empty()) {
        if (!m_TakeStatusLine(text)) {
            return State::Invalid;
        }
        constexpr std::size_t usual = 512;
        m_Block.reserve(usual);
    }
    m_Block += text;
    if (!IsEmptyLine(text)) {
        return State::Incomplete;
    }
    if (m_Status < 200) {  // an interim response: the real one follows
        m_Block.clear();
        m_Status = 0;
        return State::Incomplete;
    }
    m_IsComplete = true;
    return State::Complete;
}

// "HTTP/1.1 200 OK": the status is the three digits after the first blank.
bool HeaderCollector::m_TakeStatusLine(std::string_view line)
{
    const std::size_t blank = line.find(' ');
    if (line.compare(0, 5, "HTTP/") != 0 || blank == std::string_view::npos ||
        line.size() < blank + 4) {
        return false;
    }
    m_Status = 0;
    for (std::size_t at = blank + 1; at < blank + 4; ++at) {
        if (std::isdigit(static_cast<unsigned char>(line[at])) == 0) {
            return false;
        }
        m_Status = m_Status * 10 + (line[at] - '0');
    }
    constexpr long switchingProtocols = 101;  // never asked for: what follows is no HTTP
    return m_Status >= 100 && m_Status != switchingProtocols;
}

std::optional<std::string> HeaderCollector::Value(const std::string& name) const
{
    std::size_t count = 0;
    std::string value;
    ForEachField(m_Block, name, [&](std::string each) {
        value = std::move(each);
        ++count;
    });
    return count == 1 ? std::optional<std::string>(std::move(value)) : std::nullopt;
}

std::size_t HeaderCollector::Count(const std::string& name) const
{
    std::size_t count = 0;
    ForEachField(m_Block, name, [&count](const std::string&) { ++count; });
    return count;
}

}  // namespace KIT
}  // namespace VORTAN_MW
