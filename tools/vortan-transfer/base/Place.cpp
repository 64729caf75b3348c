#include "base/Place.h"

#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <system_error>

namespace VORTAN_TRANSFER {

namespace {

namespace fs = std::filesystem;

constexpr int MaxLinks = 40;  // the system follows no more either

// As the system names a descriptor: digits without a zero in front.
std::optional<int> ParseDescriptor(const std::string& name)
{
    int number = 0;
    const char* const end = name.data() + name.size();
    const auto [last, error] = std::from_chars(name.data(), end, number);
    const bool isNumber = error == std::errc() && last == end && name == std::to_string(number);
    return isNumber && number >= 0 ? std::optional(number) : std::nullopt;
}

// Whether it is a folder in which the system shows the open descriptors of this process.
bool ShowsDescriptors(const fs::path& folder)
{
    std::error_code error;
    const fs::path real = fs::canonical(folder, error);
    if (error) {
        return false;
    }
    for (const char* const known : {"/proc/self/fd", "/proc/thread-self/fd"}) {
        if (real == fs::canonical(known, error) && !error) {
            return true;
        }
    }
    return false;
}

std::optional<int> DescriptorAt(const fs::path& path)
{
    // These are links into /proc, but also stand for the descriptors where there is no /proc.
    const std::pair<const char*, int> names[] = {{"/dev/stdin", STDIN_FILENO},
                                                 {"/dev/stdout", STDOUT_FILENO},
                                                 {"/dev/stderr", STDERR_FILENO}};
    for (const auto& [name, descriptor] : names) {
        if (path == name) {
            return descriptor;
        }
    }
    const std::optional<int> descriptor = ParseDescriptor(path.filename());
    return descriptor && ShowsDescriptors(path.parent_path()) ? descriptor : std::nullopt;
}

}  // namespace

Place FindPlace(const std::string& target)
{
    if (target == "-") {
        return {STDOUT_FILENO, ""};
    }
    fs::path path = target;
    for (int links = 0; links < MaxLinks; ++links) {
        if (const std::optional<int> descriptor = DescriptorAt(path)) {
            return {descriptor, ""};
        }
        std::error_code error;
        const fs::path next = fs::read_symlink(path, error);
        if (error) {
            break;
        }
        path = path.parent_path() / next;
    }
    return {std::nullopt, path};
}

}  // namespace VORTAN_TRANSFER
