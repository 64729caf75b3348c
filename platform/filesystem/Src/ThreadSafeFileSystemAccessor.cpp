#include "ThreadSafeFileSystemAccessor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace VORTAN_MW {

namespace {

class FileDescriptor
{
public:
    explicit FileDescriptor(const std::string& path)
        : m_Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor()
    {
        if (m_Descriptor >= 0) {
            close(m_Descriptor);
        }
    }

    int Get() const { return m_Descriptor; }

private:
    int m_Descriptor;
};

// The size that the file system reports is where to start, and no more: some files report 0.
std::size_t SizeToStartWith(const struct stat& status)
{
    constexpr std::size_t smallest = 4096;
    // One byte more than the file has, so that the end shows without growing.
    return std::max(smallest, static_cast<std::size_t>(status.st_size) + 1);
}

// Returns how many bytes were read, 0 at the end of the file, -1 on an error.
ssize_t ReadSome(int descriptor, std::uint8_t* to, std::size_t size)
{
    ssize_t count = 0;
    do {
        count = read(descriptor, to, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

bool ReadToEnd(int descriptor, std::vector<std::uint8_t>& contents)
{
    std::size_t length = 0;
    for (;;) {
        if (length == contents.size()) {
            contents.resize(contents.size() * 2);
        }
        const ssize_t count =
            ReadSome(descriptor, contents.data() + length, contents.size() - length);
        if (count < 0) {
            return false;
        }
        if (count == 0) {
            contents.resize(length);
            return true;
        }
        length += static_cast<std::size_t>(count);
    }
}

}  // namespace

bool ThreadSafeFileSystemAccessor::FileExists(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

bool ThreadSafeFileSystemAccessor::ReadFile(const std::string& path,
                                            std::vector<std::uint8_t>& contents)
{
    contents.clear();
    const FileDescriptor file(path);
    struct stat status = {};
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0 || S_ISDIR(status.st_mode)) {
        return false;
    }
    contents.resize(SizeToStartWith(status));
    if (!ReadToEnd(file.Get(), contents)) {
        contents.clear();
        return false;
    }
    return true;
}

}  // namespace VORTAN_MW
