#include "TemporaryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <system_error>

namespace VORTAN_TRANSFER {

namespace {

constexpr mode_t PermissionBits = 0777;
constexpr mode_t DefaultMode = 0666;  // less what the umask takes away

struct Registry
{
    std::mutex mutex;
    std::set<std::string> paths;  // guarded by mutex
};

// Never destroyed: it is needed to the very end.
Registry& TheRegistry()
{
    static Registry& registry = *new Registry;
    return registry;
}

std::string PathBeside(const std::string& target)
{
    constexpr std::size_t longestPart = 200;  // leaves room in the 255 bytes that a name may have
    const std::filesystem::path path(target);
    const std::string name = path.filename().string().substr(0, longestPart);
    const std::string number = std::to_string(std::random_device()());
    return path.parent_path() / ("." + name + "." + number + ".part");
}

// Opens a file that was not there before and returns its path.
std::string Make(FileDescriptor& file, const std::string& target, mode_t mode)
{
    for (;;) {
        std::string path = PathBeside(target);
        try {
            file = OpenFile(path, O_WRONLY | O_CREAT | O_EXCL, mode);
            return path;
        } catch (const std::system_error& error) {
            if (error.code().value() != EEXIST) {
                throw;
            }
        }
    }
}

// As far as the system lets us: not every user may give files away, nor has every file system
// permissions.
void LendOwnerAndMode(int descriptor, const struct stat& from)
{
    [[maybe_unused]] const int owned = fchown(descriptor, from.st_uid, from.st_gid);
    [[maybe_unused]] const int allowed = fchmod(descriptor, from.st_mode & PermissionBits);
}

// Nothing if the user may write to the folder, but not open it: then there is no way to sync it.
std::optional<FileDescriptor> OpenFolderOf(const std::string& path)
{
    const std::string folder = std::filesystem::path(path).parent_path();
    try {
        return OpenFile(folder.empty() ? "." : folder, O_RDONLY | O_DIRECTORY);
    } catch (const std::system_error& error) {
        if (error.code().value() != EACCES) {
            throw;
        }
        return std::nullopt;
    }
}

}  // namespace

// What follows the delegation may throw: the destructor then cleans up.
TemporaryFile::TemporaryFile(const std::string& target) : TemporaryFile()
{
    m_Target = target;
    struct stat existing = {};
    const bool exists = stat(target.c_str(), &existing) == 0;
    {
        Registry& registry = TheRegistry();
        const std::lock_guard<std::mutex> lock(registry.mutex);
        m_Path = Make(m_File, target, exists ? existing.st_mode & PermissionBits : DefaultMode);
        registry.paths.insert(m_Path);
    }
    if (exists) {
        LendOwnerAndMode(m_File.Get(), existing);
    }
}

TemporaryFile::~TemporaryFile()
{
    if (!m_Path.empty()) {
        Registry& registry = TheRegistry();
        const std::lock_guard<std::mutex> lock(registry.mutex);
        unlink(m_Path.c_str());
        registry.paths.erase(m_Path);
    }
}

void TemporaryFile::TakePlace()
{
    Sync(m_File.Get());
    const std::optional<FileDescriptor> folder = OpenFolderOf(m_Target);
    m_File.Close();
    m_Rename();
    if (folder) {
        Sync(folder->Get());
    }
}

void TemporaryFile::m_Rename()
{
    Registry& registry = TheRegistry();
    const std::lock_guard<std::mutex> lock(registry.mutex);
    if (std::rename(m_Path.c_str(), m_Target.c_str()) != 0) {
        ThrowErrno();
    }
    registry.paths.erase(m_Path);
    m_Path.clear();
}

void TemporaryFile::RemoveAllForGood()
{
    Registry& registry = TheRegistry();
    registry.mutex.lock();
    for (const std::string& path : registry.paths) {
        unlink(path.c_str());
    }
}

}  // namespace VORTAN_TRANSFER
