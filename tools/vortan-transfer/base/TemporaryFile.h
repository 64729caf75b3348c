#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "base/FileDescriptor.h"

namespace VORTAN_TRANSFER {

// A file beside a target that is to take its place. It is removed on destruction unless it did.
// What fails throws std::system_error.
//
//     TemporaryFile file("out");
//     WriteAll(file.Descriptor(), text.data(), text.size());
//     file.TakePlace();
class TemporaryFile
{
public:
    // First removes what killed programs have left of this target. Until the file takes the place
    // of an existing target, nobody but the user may read it. Without one, it has the permissions
    // of any file that is made.
    explicit TemporaryFile(const std::string& target);
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile();

    int Descriptor() const { return m_File.Get(); }

    // Gives the file the permissions (and, as far as allowed, the owner) of the target, and then
    // its name. What was written is on the disk before the old file is gone: after a power cut, the
    // name leads to one of the two, whole. Returns when the name is on the disk, too.
    void TakePlace();

    // Removes every such file there is. From then on none can be made and none can take its place:
    // whoever tries waits for the end of the program, which the caller is to bring about.
    static void RemoveAllForGood();

private:
    TemporaryFile() = default;

    void m_GiveToOwnerOfTarget();
    void m_Rename();

    std::string m_Target;
    std::optional<struct stat> m_Existing;  // the target when the file was made
    std::string m_Path;                     // empty when there is nothing to remove
    FileDescriptor m_File;
};

}  // namespace VORTAN_TRANSFER
