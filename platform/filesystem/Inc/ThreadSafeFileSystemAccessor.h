#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VORTAN_MW {

// Access to local files that any number of threads may use at once.
class ThreadSafeFileSystemAccessor
{
public:
    // True when path names a regular file or a link to one. A directory is no file, nor are devices
    // and pipes: reading those can wait for ever or never end.
    static bool FileExists(const std::string& path);

    // Reads the whole file into contents and returns true. On any failure, such as a file that does
    // not fit into memory, returns false and leaves contents empty: a part of a file is never
    // passed off as the whole.
    static bool ReadFile(const std::string& path, std::vector<std::uint8_t>& contents);
};

}  // namespace VORTAN_MW
