#include "Text.h"

#include <TerminalCharacters.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace VORTAN_MW {
namespace DLOG {

namespace {

// The length of the printable ASCII with which text begins: of nearly every line it is all.
std::size_t PlainLength(std::string_view text)
{
    const auto isPlain = [](char character) { return character >= ' ' && character <= '~'; };
    const auto end = std::find_if_not(text.begin(), text.end(), isPlain);
    return static_cast<std::size_t>(end - text.begin());
}

// The length of the colour sequence with which text begins, 0 if it does not.
std::size_t ColourLength(std::string_view text)
{
    if (text.substr(0, 2) != "\033[") {
        return 0;
    }
    const std::size_t end = text.find_first_not_of("0123456789;", 2);
    return end != std::string_view::npos && text[end] == 'm' ? end + 1 : 0;
}

void AppendWrittenOut(std::string& to, std::string_view character)
{
    constexpr std::string_view digits = "0123456789abcdef";
    for (const char control : character) {
        const auto code = static_cast<unsigned char>(control);
        if (control == '\n') {
            to += "\\n";
        } else if (control == '\r') {
            to += "\\r";
        } else {
            to.append("\\x").append(1, digits[code >> 4U]).append(1, digits[code & 0xFU]);
        }
    }
}

char LevelLetter(int priority)
{
    constexpr std::string_view letters = "??VDIWEF";
    return priority >= 0 && static_cast<std::size_t>(priority) < letters.size()
               ? letters[static_cast<std::size_t>(priority)]
               : '?';
}

}  // namespace

std::string ReadableText(std::string_view text, bool keepColours)
{
    std::string readable;
    readable.reserve(text.size());
    while (true) {
        const std::size_t plain = PlainLength(text);
        readable.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            return readable;
        }
        const std::size_t colour = ColourLength(text);
        const auto [size, code] = FirstCharacter(text);
        const std::string_view next = text.substr(0, colour > 0 ? colour : size);
        const bool stays = colour > 0 ? keepColours : code == '\t' || !SteersTerminal(code);
        if (stays) {
            readable.append(next);
        } else if (colour == 0) {
            AppendWrittenOut(readable, next);
        }
        text.remove_prefix(next.size());
    }
}

std::string LineStart(int priority, std::string_view tag)
{
    std::timespec time = {};
    std::timespec_get(&time, TIME_UTC);
    std::tm local = {};
    localtime_r(&time.tv_sec, &local);
    std::array<char, 32> date = {};
    std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::array<char, 64> start = {};
    std::snprintf(start.data(), start.size(), "%s.%03ld %d %c ", date.data(),
                  static_cast<long>(time.tv_nsec / 1000000), gettid(), LevelLetter(priority));
    return start.data() + ReadableText(tag, false) + ": ";
}

}  // namespace DLOG
}  // namespace VORTAN_MW
