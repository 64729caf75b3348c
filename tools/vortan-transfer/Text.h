#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace VORTAN_TRANSFER {

// The text with every control character written as an escape, so that a name or an answer of a
// server can neither break a line nor steer the terminal.
std::string Printable(std::string_view text);

// The same between single quotes.
std::string Quoted(std::string_view text);

// Makes what a server sent safe to be shown on a terminal, piece by piece: lines and tabs stay,
// every other control character becomes an escape.
class TerminalText
{
public:
    // What can be shown of the text so far. A piece may end inside a character or a line's end: the
    // rest of it is shown with the next piece.
    std::string Next(std::string_view piece);

    // What is still held back when the text is at its end.
    std::string Rest();

private:
    std::string m_Held;
};

// ASCII only, whatever the locale.
std::string LowerCase(std::string_view text);

// Without the blanks and tabs at both ends.
std::string_view Trimmed(std::string_view text);

bool IsControl(char character);

// Decodes %41 and the like; nothing if a percent sign is not followed by two hexadecimal digits.
std::optional<std::string> PercentDecoded(std::string_view text);

// The text of an error number. Any thread may call it.
std::string ErrorText(int number);

}  // namespace VORTAN_TRANSFER
