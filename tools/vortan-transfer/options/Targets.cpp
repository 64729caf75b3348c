#include "options/Targets.h"

#include <sys/stat.h>

#include <filesystem>
#include <vector>

#include "base/Place.h"

namespace VORTAN_TRANSFER {

namespace {

// What a target takes, and what must not have been taken before.
struct Keys
{
    std::vector<std::string> taken;
    std::vector<std::string> excluded;
};

std::string IdOf(const struct stat& file)
{
    return std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
}

std::string NormalOf(const std::filesystem::path& path)
{
    return "path " + path.lexically_normal().string();
}

// What the file at the end of a path will be known by. A file that is replaced parts from its other
// hard links, so the folder and the name in it count. Where there is no folder, the path does.
std::string EntryOf(const std::filesystem::path& path)
{
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    struct stat status = {};
    if (stat(folder.c_str(), &status) != 0) {
        return NormalOf(path);
    }
    return "entry " + IdOf(status) + "/" + path.filename().string();
}

// Two descriptors of one file can overwrite each other; those of a terminal, a pipe or a device
// cannot.
Keys KeysOfDescriptor(int descriptor)
{
    Keys keys{{"descriptor " + std::to_string(descriptor)}, {}};
    keys.excluded = keys.taken;
    struct stat file = {};
    if (fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode)) {
        keys.taken.push_back("open " + IdOf(file));
        keys.excluded.push_back("open " + IdOf(file));
        keys.excluded.push_back("named " + IdOf(file));
    }
    return keys;
}

Keys KeysOfPath(const std::string& path)
{
    const std::string entry = EntryOf(path);
    Keys keys{{entry, NormalOf(path)}, {entry}};
    struct stat file = {};
    if (stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode)) {
        keys.taken.push_back("named " + IdOf(file));
        keys.excluded.push_back("open " + IdOf(file));
        if (file.st_nlink == 1) {  // the names differ in letter case, or in the mount point
            keys.excluded.push_back("named " + IdOf(file));
        }
    }
    return keys;
}

}  // namespace

std::optional<Targets::Claimed> Targets::Claim(const std::string& target, const std::string& owner)
{
    const Place place = FindPlace(target);
    const Keys keys =
        place.descriptor ? KeysOfDescriptor(*place.descriptor) : KeysOfPath(place.path);
    for (const std::string& key : keys.excluded) {
        const auto earlier = m_Claimed.find(key);
        if (earlier != m_Claimed.end()) {
            return earlier->second;
        }
    }
    for (const std::string& key : keys.taken) {
        m_Claimed.insert({key, {target, owner}});
    }
    return std::nullopt;
}

}  // namespace VORTAN_TRANSFER
