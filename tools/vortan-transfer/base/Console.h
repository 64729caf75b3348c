#pragma once

#include <string>
#include <vector>

#include "base/Palette.h"

namespace VORTAN_TRANSFER {

// Standard error, as a person reads it. Used by one thread.
class Console
{
public:
    ~Console() { ClearProgress(); }

    // Writes one line, without passwords. The progress, if it is shown, makes room for it.
    void Line(const std::string& text);

    // Writes lines that do not begin with the program's name.
    void Table(const std::vector<std::string>& lines);

    const Palette& Colours() const { return m_Palette; }

    // How many characters of progress the terminal's line has room for.
    static std::size_t Room();

    // Shows this in the terminal's last line, instead of what was shown before.
    void ShowProgress(const std::string& text);
    void ClearProgress();

private:
    const Palette m_Palette = Palette::ForStandardError();
    std::size_t m_Shown = 0;
};

// Whether progress shown on standard error would reach a person.
bool CanShowProgress();

// Whether what is written to standard output appears on a terminal.
bool IsStandardOutputTerminal();

}  // namespace VORTAN_TRANSFER
