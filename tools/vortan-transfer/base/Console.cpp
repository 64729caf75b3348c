#include "base/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/Password.h"

namespace VORTAN_TRANSFER {

namespace {

// There is nobody to tell that standard error cannot be written to.
void WriteToStandardError(const std::string& text)
{
    try {
        WriteAll(STDERR_FILENO, text.data(), text.size());
    } catch (const std::system_error&) {
    }
}

}  // namespace

void Console::Line(const std::string& text)
{
    ClearProgress();
    WriteToStandardError(m_Palette.Bad("vortan-transfer:") + " " + WithoutPasswords(text) + "\n");
}

void Console::Table(const std::vector<std::string>& lines)
{
    ClearProgress();
    for (const std::string& line : lines) {
        WriteToStandardError(line + "\n");
    }
}

std::size_t Console::Room()
{
    constexpr std::size_t usual = 80;
    winsize size = {};
    const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    // A line that reached the last column could not be taken back.
    return (isKnown ? size.ws_col : usual) - 1;
}

void Console::ShowProgress(const std::string& text)
{
    const std::string shown = text.substr(0, Room());
    const std::string blanks(std::max(m_Shown, shown.size()) - shown.size(), ' ');
    WriteToStandardError("\r" + shown + blanks);
    m_Shown = shown.size();
}

void Console::ClearProgress()
{
    if (m_Shown > 0) {
        WriteToStandardError("\r" + std::string(m_Shown, ' ') + "\r");
        m_Shown = 0;
    }
}

bool CanShowProgress()
{
    return isatty(STDERR_FILENO) == 1;
}

bool IsStandardOutputTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

}  // namespace VORTAN_TRANSFER
