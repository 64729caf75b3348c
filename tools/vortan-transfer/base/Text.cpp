#include "base/Text.h"

#include <TerminalCharacters.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace VORTAN_TRANSFER {

using VORTAN_MW::FirstCharacter;
using VORTAN_MW::IsCutCharacter;
using VORTAN_MW::SteersTerminal;

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
    while (!text.empty()) {
        const auto [length, code] = FirstCharacter(text);
        for (const char byte : text.substr(0, length)) {
            printable += SteersTerminal(code) ? Escaped(byte) : std::string(1, byte);
        }
        text.remove_prefix(length);
    }
    return printable;
}

std::string TerminalText::Next(std::string_view piece)
{
    const std::string text = std::exchange(m_Held, "") + std::string(piece);
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        if (rest == "\r" || IsCutCharacter(rest)) {
            m_Held = rest;
            break;
        }
        const bool isLineEnd = rest.substr(0, 2) == "\r\n";
        const std::string_view next = rest.substr(0, isLineEnd ? 2 : FirstCharacter(rest).length);
        const bool staysAsItIs = isLineEnd || next == "\n" || next == "\t";
        shown += staysAsItIs ? std::string(next) : Printable(next);
        rest.remove_prefix(next.size());
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
