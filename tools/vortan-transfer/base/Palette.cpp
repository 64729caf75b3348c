#include "base/Palette.h"

#include <unistd.h>

#include <cstdlib>

namespace VORTAN_TRANSFER {

namespace {

std::string Variable(const char* name)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment.
    const char* const value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

Palette Palette::ForStandardError()
{
    const std::string terminal = Variable("TERM");
    return Palette(isatty(STDERR_FILENO) == 1 && Variable("NO_COLOR").empty() &&
                   !terminal.empty() && terminal != "dumb");
}

std::string Palette::m_Painted(const std::string& text, const char* colour) const
{
    return m_HasColours ? std::string("\033[") + colour + "m" + text + "\033[0m" : text;
}

}  // namespace VORTAN_TRANSFER
