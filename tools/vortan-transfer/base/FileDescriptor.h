#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace VORTAN_TRANSFER {

// Owns an open file. What fails throws std::system_error.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    int Get() const { return m_Descriptor; }

    // Closes it early. Some file systems tell only then that bytes are lost.
    void Close();

private:
    int m_Descriptor = -1;
};

// Throws the error that errno tells of.
[[noreturn]] void ThrowErrno();

// flags and mode as for open(). The file is not handed on to other programs.
FileDescriptor OpenFile(const std::string& path, int flags, mode_t mode = 0);

// A second descriptor of an open file.
FileDescriptor Duplicate(int descriptor);

// Returns when what was written has reached the disk, as far as the file system has one.
void Sync(int descriptor);

// Returns how many bytes were read, 0 at the end.
std::size_t ReadSome(int descriptor, void* to, std::size_t size);

// Writes everything, and waits for a descriptor that is not ready.
void WriteAll(int descriptor, const void* from, std::size_t size);

}  // namespace VORTAN_TRANSFER
