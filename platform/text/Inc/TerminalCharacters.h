#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

// Finds the characters in a text from outside that a terminal would obey instead of showing.
namespace VORTAN_MW {

struct TerminalCharacter
{
    std::size_t length;  // in bytes
    char32_t code;
};

namespace DETAIL {

inline bool ContinuesCharacter(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// How long the UTF-8 character is that begins with this byte; 0 if none does.
inline std::size_t LengthFromFirst(char first)
{
    const auto byte = static_cast<unsigned char>(first);
    return byte < 0x80   ? 1
           : byte < 0xC2 ? 0
           : byte < 0xE0 ? 2
           : byte < 0xF0 ? 3
           : byte < 0xF5 ? 4
                         : 0;
}

inline char32_t CodeOf(std::string_view character)
{
    constexpr unsigned char masks[] = {0x7F, 0x1F, 0x0F, 0x07};
    auto code = static_cast<char32_t>(static_cast<unsigned char>(character[0]) &
                                      masks[character.size() - 1]);
    for (const char byte : character.substr(1)) {
        code = code << 6U | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return code;
}

// The shortest form is the only valid one, and UTF-16's surrogates are no characters.
inline bool IsValid(char32_t code, std::size_t length)
{
    constexpr char32_t least[] = {0, 0x80, 0x800, 0x10000};
    return code >= least[length - 1] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

}  // namespace DETAIL

// What text, which must not be empty, begins with. A byte that belongs to no UTF-8 character stands
// for itself, as on a terminal with 8-bit characters: there, 0x9B begins a control sequence.
inline TerminalCharacter FirstCharacter(std::string_view text)
{
    const std::size_t length = DETAIL::LengthFromFirst(text[0]);
    const std::string_view character = text.substr(0, length);
    if (length > 0 && character.size() == length &&
        std::all_of(character.begin() + 1, character.end(), DETAIL::ContinuesCharacter)) {
        const char32_t code = DETAIL::CodeOf(character);
        if (DETAIL::IsValid(code, length)) {
            return {length, code};
        }
    }
    return {1, static_cast<unsigned char>(text[0])};
}

// Whether text is the beginning of a longer UTF-8 character and no more.
inline bool IsCutCharacter(std::string_view text)
{
    return !text.empty() && text.size() < DETAIL::LengthFromFirst(text[0]) &&
           std::all_of(text.begin() + 1, text.end(), DETAIL::ContinuesCharacter);
}

// Whether a terminal obeys the character: control characters of 7 and of 8 bits, and the characters
// with Unicode's property Bidi_Control, which make a name or a line read as another one.
inline bool SteersTerminal(char32_t code)
{
    const bool isControl = code < 0x20 || (code >= 0x7F && code <= 0x9F);
    const bool isMark = code == 0x061C || code == 0x200E || code == 0x200F;
    const bool isEmbedding = code >= 0x202A && code <= 0x202E;
    const bool isIsolate = code >= 0x2066 && code <= 0x2069;
    return isControl || isMark || isEmbedding || isIsolate;
}

}  // namespace VORTAN_MW
