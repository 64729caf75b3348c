#include "Text.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace VORTAN_TRANSFER {

namespace {

constexpr std::string_view HexDigits = "0123456789abcdef";

std::string Escaped(char character)
{
    switch (character) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default: {
            const auto byte = static_cast<unsigned char>(character);
            return {'\\', 'x', HexDigits[byte >> 4U], HexDigits[byte & 0xFU]};
        }
    }
}

// The control characters U+0080 to U+009F are two bytes long in UTF-8.
bool StartsLongControl(std::string_view text)
{
    return text.size() >= 2 && text[0] == '\xC2' &&
           (static_cast<unsigned char>(text[1]) >> 5U) == 4;
}

std::optional<unsigned> HexValue(char digit)
{
    const std::size_t value = HexDigits.find(LowerCase({&digit, 1}));
    return value == std::string_view::npos ? std::nullopt
                                           : std::optional<unsigned>(static_cast<unsigned>(value));
}

}  // namespace

bool IsControl(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

std::string Printable(std::string_view text)
{
    std::string printable;
    for (; !text.empty(); text.remove_prefix(1)) {
        if (StartsLongControl(text)) {
            printable += Escaped(text[0]) + Escaped(text[1]);
            text.remove_prefix(1);
        } else if (IsControl(text[0])) {
            printable += Escaped(text[0]);
        } else {
            printable += text[0];
        }
    }
    return printable;
}

std::string TerminalText::Next(std::string_view piece)
{
    const std::string text = std::exchange(m_Held, "") + std::string(piece);
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        if (rest == "\r" || rest == "\xC2") {
            m_Held = rest;
            break;
        }
        const bool isLineEnd = rest.substr(0, 2) == "\r\n";
        const std::size_t length = isLineEnd || StartsLongControl(rest) ? 2 : 1;
        const std::string_view next = rest.substr(0, length);
        const bool staysAsItIs = isLineEnd || next == "\n" || next == "\t";
        shown += staysAsItIs ? std::string(next) : Printable(next);
        rest.remove_prefix(length);
    }
    return shown;
}

std::string TerminalText::Rest()
{
    return Printable(std::exchange(m_Held, ""));
}

std::string Quoted(std::string_view text)
{
    return "'" + Printable(text) + "'";
}

std::string LowerCase(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return lower;
}

std::string_view Trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::optional<std::string> PercentDecoded(std::string_view text)
{
    std::string decoded;
    for (; !text.empty(); text.remove_prefix(1)) {
        if (text[0] != '%') {
            decoded += text[0];
            continue;
        }
        const auto high = text.size() < 3 ? std::nullopt : HexValue(text[1]);
        const auto low = text.size() < 3 ? std::nullopt : HexValue(text[2]);
        if (!high || !low) {
            return std::nullopt;
        }
        decoded += static_cast<char>(*high * 16 + *low);
        text.remove_prefix(2);
    }
    return decoded;
}

std::string ErrorText(int number)
{
    return std::system_category().message(number);
}

}  // namespace VORTAN_TRANSFER
