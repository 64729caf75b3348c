#include "base/FileDescriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace VORTAN_TRANSFER {

namespace {

void WaitUntilReady(int descriptor, short events)
{
    pollfd waited = {descriptor, events, 0};
    if (poll(&waited, 1, -1) < 0 && errno != EINTR) {
        ThrowErrno();
    }
}

// After a read or write that failed: returns if it is to be tried again.
void RetryOrThrow(int descriptor, short events)
{
    if (errno == EAGAIN) {
        WaitUntilReady(descriptor, events);
    } else if (errno != EINTR) {
        ThrowErrno();
    }
}

}  // namespace

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : m_Descriptor(std::exchange(other.m_Descriptor, -1))
{}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    std::swap(m_Descriptor, other.m_Descriptor);
    return *this;
}

FileDescriptor::~FileDescriptor()
{
    if (m_Descriptor >= 0) {
        close(m_Descriptor);
    }
}

void FileDescriptor::Close()
{
    // Closed also when this fails.
    if (close(std::exchange(m_Descriptor, -1)) != 0 && errno != EINTR) {
        ThrowErrno();
    }
}

void ThrowErrno()
{
    throw std::system_error(errno, std::system_category());
}

FileDescriptor OpenFile(const std::string& path, int flags, mode_t mode)
{
    FileDescriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode));
    if (file.Get() < 0) {
        ThrowErrno();
    }
    return file;
}

FileDescriptor Duplicate(int descriptor)
{
    FileDescriptor copy(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    if (copy.Get() < 0) {
        ThrowErrno();
    }
    return copy;
}

void Sync(int descriptor)
{
    while (fsync(descriptor) != 0) {
        // File systems that cannot sync say so: they keep nothing over a power cut anyway. EROFS is
        // none of these errors: a file that is being written is lost when its disk turns read-only.
        if (errno == EINVAL || errno == ENOTSUP) {
            return;
        }
        if (errno != EINTR) {
            ThrowErrno();
        }
    }
}

std::size_t ReadSome(int descriptor, void* to, std::size_t size)
{
    for (;;) {
        const ssize_t count = read(descriptor, to, size);
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        RetryOrThrow(descriptor, POLLIN);
    }
}

void WriteAll(int descriptor, const void* from, std::size_t size)
{
    const char* at = static_cast<const char*>(from);
    while (size > 0) {
        const ssize_t count = write(descriptor, at, size);
        if (count >= 0) {
            at += count;
            size -= static_cast<std::size_t>(count);
        } else {
            RetryOrThrow(descriptor, POLLOUT);
        }
    }
}

}  // namespace VORTAN_TRANSFER
