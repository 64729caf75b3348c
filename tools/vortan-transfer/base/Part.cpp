#include "base/Part.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string_view>
#include <system_error>

namespace VORTAN_TRANSFER {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view End = ".part";

std::string BeginFor(const fs::path& target)
{
    constexpr std::size_t longestPart = 200;  // leaves room in the 255 bytes that a name may have
    return "." + target.filename().string().substr(0, longestPart) + ".";
}

std::string PathBeside(const fs::path& target)
{
    const std::uint32_t number = std::random_device()();
    return target.parent_path() / (BeginFor(target) + std::to_string(number) + std::string(End));
}

// As PathBeside() writes it.
bool IsNumber(std::string_view text)
{
    std::uint32_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && text == std::to_string(number);
}

bool IsNameOfPart(std::string_view name, std::string_view begin)
{
    if (name.size() < begin.size() + End.size() || name.substr(0, begin.size()) != begin ||
        name.substr(name.size() - End.size()) != End) {
        return false;
    }
    name.remove_prefix(begin.size());
    name.remove_suffix(End.size());
    return IsNumber(name);
}

bool Lock(const FileDescriptor& file)
{
    return flock(file.Get(), LOCK_EX | LOCK_NB) == 0;
}

// Whether the file is ours from here on. Until it was locked, another program could take it for a
// stale one, and has the lock then or has removed the file. Where there are no locks, no program
// removes any.
bool Hold(const Part& part)
{
    const bool isTaken = !Lock(part.file) && errno == EWOULDBLOCK;
    struct stat status = {};
    return !isTaken && lstat(part.path.c_str(), &status) == 0;
}

bool IsRegular(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void RemoveIfStale(const std::string& path)
{
    if (!IsRegular(path)) {
        return;  // opening a device may have effects
    }
    try {
        const FileDescriptor file = OpenFile(path, O_WRONLY | O_NOFOLLOW | O_NONBLOCK);
        // If its program has just given it the target's name, there is nothing under this one.
        if (Lock(file)) {
            unlink(path.c_str());
        }
    } catch (const std::system_error&) {
        // Another user's, or gone.
    }
}

}  // namespace

Part MakePart(const std::string& target, mode_t mode)
{
    for (;;) {
        Part part{FileDescriptor(), PathBeside(target)};
        try {
            part.file = OpenFile(part.path, O_WRONLY | O_CREAT | O_EXCL, mode);
        } catch (const std::system_error& error) {
            if (error.code().value() != EEXIST) {
                throw;
            }
            continue;
        }
        if (Hold(part)) {
            return part;
        }
    }
}

void RemoveStaleParts(const std::string& target)
{
    const fs::path folder = fs::path(target).parent_path();
    const std::string begin = BeginFor(target);
    std::error_code error;
    fs::directory_iterator entry(folder.empty() ? "." : folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const fs::path path = entry->path();
        if (IsNameOfPart(path.filename().native(), begin)) {
            RemoveIfStale(path);
        }
    }
}

}  // namespace VORTAN_TRANSFER
