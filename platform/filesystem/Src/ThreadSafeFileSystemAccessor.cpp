#include "ThreadSafeFileSystemAccessor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <stdexcept>

namespace VORTAN_MW {

namespace {

class FileDescriptor
{
public:
    explicit FileDescriptor(const std::string& path)
        // Without O_NONBLOCK, opening a pipe would wait for a writer. It changes no file's reading.
        : m_Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
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
// Throws std::length_error when no vector can be that large.
void ResizeToStartWith(std::vector<std::uint8_t>& contents, std::uint64_t reportedSize)
{
    constexpr std::uint64_t smallest = 4096;
    if (reportedSize >= contents.max_size()) {
        throw std::length_error("file too large");
    }
    // One byte more than the file has, so that the end shows without growing.
    contents.resize(static_cast<std::size_t>(std::max(smallest, reportedSize + 1)));
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

bool ReadRegularFile(const std::string& path, std::vector<std::uint8_t>& contents)
{
    const FileDescriptor file(path);
    struct stat status = {};
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    ResizeToStartWith(contents, static_cast<std::uint64_t>(status.st_size));
    return ReadToEnd(file.Get(), contents);
}

}  // namespace

bool ThreadSafeFileSystemAccessor::FileExists(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool ThreadSafeFileSystemAccessor::ReadFile(const std::string& path,
                                            std::vector<std::uint8_t>& contents)
{
    contents.clear();
    bool complete = false;
    try {
        complete = ReadRegularFile(path, contents);
    } catch (const std::exception&) {
        // There is not enough memory for the file, or it is larger than any vector.
    }
    if (!complete) {
        contents.clear();
        contents.shrink_to_fit();
    }
    return complete;
}

}  // namespace VORTAN_MW
