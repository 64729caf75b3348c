#include "FileSystem.h"

#include <fcntl.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace VORTAN_MW {
namespace KIT {

namespace {

bool SyncWith(int (*sync)(int), int file)
{
    while (sync(file) != 0) {
        // A file system that has nothing to sync says so.
        if (errno == EINVAL || errno == ENOTSUP) {
            return true;
        }
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::optional<struct stat> StatusOfLink(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? std::optional<struct stat>(status) : std::nullopt;
}

bool SyncFile(int file)
{
    return SyncWith(&fsync, file);
}

bool SyncBytes(int file)
{
    return SyncWith(&fdatasync, file);
}

Descriptor OpenFolderOf(const std::string& path)
{
    return Descriptor(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool WriteAt(int file, std::uint64_t offset, const char* data, std::size_t length)
{
    while (length > 0) {
        const ssize_t count = pwrite(file, data, length, static_cast<off_t>(offset));
        if (count < 0 && errno != EINTR) {
            return false;
        }
        const auto written = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        offset += written;
        data += written;
        length -= written;
    }
    return true;
}

std::string ReadBegin(int file, std::size_t most)
{
    std::string text(most, '\0');
    std::size_t length = 0;
    for (;;) {
        const ssize_t count =
            pread(file, &text[length], text.size() - length, static_cast<off_t>(length));
        if (count > 0) {
            length += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            text.resize(length);
            return text;
        }
    }
}

// A line of /proc/locks: "1: FLOCK  ADVISORY  WRITE 1234 08:02:5678 0 EOF".
long HolderOf(const struct stat& file)
{
    char key[64];
    std::snprintf(key, sizeof key, " %02x:%02x:%llu ", major(file.st_dev), minor(file.st_dev),
                  static_cast<unsigned long long>(file.st_ino));
    const Descriptor locks(open("/proc/locks", O_RDONLY | O_CLOEXEC));
    constexpr std::size_t most = 65536;
    const std::string text = locks.Number() < 0 ? std::string() : ReadBegin(locks.Number(), most);
    const std::size_t found = text.find(key);
    if (found == std::string::npos) {
        return 0;
    }
    const std::size_t blank = text.rfind(' ', found - 1);
    return std::max(0L, std::strtol(text.c_str() + blank + 1, nullptr, 10));
}

std::string FolderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace KIT
}  // namespace VORTAN_MW
