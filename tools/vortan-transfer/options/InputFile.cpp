#include "options/InputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <limits>
#include <string_view>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/Text.h"
#include "base/UsageError.h"

namespace VORTAN_TRANSFER {

namespace {

constexpr const char* StandardInput = "-";
// A list may be a device without an end by mistake.
constexpr std::size_t LongestList = 16UL * 1024 * 1024;

// Reads until the end, or until there are more bytes than the bound.
std::string ReadToEnd(int descriptor, std::size_t bound)
{
    std::string data;
    char buffer[65536];
    while (const std::size_t count = ReadSome(descriptor, buffer, sizeof buffer)) {
        data.append(buffer, count);
        if (data.size() > bound) {
            break;
        }
    }
    return data;
}

std::string Read(const std::string& path, const std::string& option, const std::string& shown,
                 std::size_t bound)
{
    try {
        return path == StandardInput ? ReadToEnd(STDIN_FILENO, bound)
                                     : ReadToEnd(OpenFile(path, O_RDONLY).Get(), bound);
    } catch (const std::system_error& error) {
        throw UsageError(option + ": " + Quoted(shown) + ": " + ErrorText(error.code().value()));
    }
}

}  // namespace

std::string ReadInput(const std::string& path, const std::string& option, const std::string& shown)
{
    return Read(path, option, shown, std::numeric_limits<std::size_t>::max());
}

std::vector<InputLine> ReadLines(const std::string& path, const std::string& option)
{
    const std::string data = Read(path, option, path, LongestList);
    if (data.size() > LongestList) {
        throw UsageError(option + ": " + Quoted(path) + " is larger than 16 MiB");
    }
    const std::string name = path == StandardInput ? "standard input" : Printable(path);
    std::vector<InputLine> lines;
    for (std::string_view rest = data; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() + (line.size() < rest.size() ? 1 : 0));
        const std::string place = name + ":" + std::to_string(lines.size() + 1);
        if (line.find('\0') != std::string_view::npos) {
            throw UsageError(place + ": has a zero byte");
        }
        const bool hasReturn = !line.empty() && line.back() == '\r';
        lines.push_back({place, std::string(line.substr(0, line.size() - (hasReturn ? 1 : 0)))});
    }
    return lines;
}

}  // namespace VORTAN_TRANSFER
