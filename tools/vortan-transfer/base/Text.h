#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace VORTAN_TRANSFER {

// The text with an escape for each byte of a control character, of 7 or 8 bits, and of a character
// that turns the direction of text: a name or a server's answer can then neither break a line nor
// steer the terminal nor pass for another one.
std::string Printable(std::string_view text);

// The same between single quotes.
std::string Quoted(std::string_view text);

// Printable() for what a server sends piece by piece, with its lines and tabs as they are.
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
