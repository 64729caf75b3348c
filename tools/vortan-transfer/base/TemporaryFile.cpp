#include "base/TemporaryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <set>
#include <system_error>
#include <utility>

#include "base/Part.h"

namespace VORTAN_TRANSFER {

namespace {

constexpr mode_t PermissionBits = 0777;
constexpr mode_t DefaultMode = 0666;  // less what the umask takes away
constexpr mode_t ReadableByUser = 0400;
constexpr mode_t WritableByUser = 0200;

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

std::optional<struct stat> StatusOf(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

// No more readable than the target is.
mode_t ModeBeside(const std::optional<struct stat>& target)
{
    return target ? (target->st_mode & ReadableByUser) | WritableByUser : DefaultMode;
}

// What is meant for a group must not be for another one: that gets no more than everybody.
mode_t ForAnyGroup(mode_t mode)
{
    constexpr mode_t others = 0007;
    constexpr mode_t group = 0070;
    return (mode & ~group) | ((mode & others) << 3U);
}

// As far as the system lets us: not every user may give files away, nor has every file system
// permissions. These come last, as a new owner must not get those of the old one's group.
void GiveOwnerAndMode(int descriptor, const struct stat& from)
{
    constexpr auto sameUser = static_cast<uid_t>(-1);
    const bool hasGroup = fchown(descriptor, from.st_uid, from.st_gid) == 0 ||
                          fchown(descriptor, sameUser, from.st_gid) == 0;
    const mode_t mode = from.st_mode & PermissionBits;
    [[maybe_unused]] const int allowed = fchmod(descriptor, hasGroup ? mode : ForAnyGroup(mode));
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
    m_Existing = StatusOf(target);
    RemoveStaleParts(target);
    Registry& registry = TheRegistry();
    const std::lock_guard<std::mutex> lock(registry.mutex);
    Part part = MakePart(target, ModeBeside(m_Existing));
    m_File = std::move(part.file);
    m_Path = std::move(part.path);
    registry.paths.insert(m_Path);
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
    m_GiveToOwnerOfTarget();
    Sync(m_File.Get());
    const std::optional<FileDescriptor> folder = OpenFolderOf(m_Target);
    // Keeps the lock on the file until it has its name.
    const FileDescriptor lock = Duplicate(m_File.Get());
    m_File.Close();
    m_Rename();
    if (folder) {
        Sync(folder->Get());
    }
}

// As the target is by now, or was last.
void TemporaryFile::m_GiveToOwnerOfTarget()
{
    if (const auto existing = StatusOf(m_Target)) {
        m_Existing = existing;
    }
    if (m_Existing) {
        GiveOwnerAndMode(m_File.Get(), *m_Existing);
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
