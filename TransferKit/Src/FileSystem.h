#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "Descriptor.h"

namespace VORTAN_MW {
namespace KIT {

// System calls as the file sink needs them. What returns false, or no descriptor, has set errno.

std::optional<struct stat> StatusOfLink(const std::string& path);

// Returns when the bytes have reached the disk, as far as the file system has one.
bool SyncFile(int file);
bool SyncBytes(int file);
// The folder of this path, to sync its names.
Descriptor OpenFolderOf(const std::string& path);

bool WriteAt(int file, std::uint64_t offset, const char* data, std::size_t length);
// At most that many bytes from the beginning; what cannot be read is missing.
std::string ReadBegin(int file, std::size_t most);

// The process that has locked the file with flock, 0 if the system does not say.
long HolderOf(const struct stat& file);

// The part of a path before its last slash.
std::string FolderOf(const std::string& path);

}  // namespace KIT
}  // namespace VORTAN_MW
