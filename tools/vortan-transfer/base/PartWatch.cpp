#include "base/PartWatch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <set>
#include <utility>

namespace VORTAN_TRANSFER {

namespace {

struct WatchedParts
{
    std::mutex mutex;
    std::set<std::string> targets;  // guarded by mutex
};

// Never destroyed: it is needed to the very end.
WatchedParts& TheWatchedParts()
{
    static WatchedParts& parts = *new WatchedParts;
    return parts;
}

std::string PartOf(const std::string& target)
{
    return target + ".part";
}

std::string RecordOf(const std::string& target)
{
    return target + ".part.meta";
}

bool HasRecord(const std::string& target)
{
    struct stat status = {};
    return stat(RecordOf(target).c_str(), &status) == 0 && status.st_size > 0;
}

}  // namespace

PartWatch::PartWatch(std::string target) : m_Target(std::move(target))
{
    WatchedParts& parts = TheWatchedParts();
    const std::lock_guard<std::mutex> lock(parts.mutex);
    parts.targets.insert(m_Target);
}

PartWatch::~PartWatch()
{
    WatchedParts& parts = TheWatchedParts();
    const std::lock_guard<std::mutex> lock(parts.mutex);
    parts.targets.erase(m_Target);
}

void PartWatch::RemoveUselessForGood()
{
    WatchedParts& parts = TheWatchedParts();
    parts.mutex.lock();
    for (const std::string& target : parts.targets) {
        if (!HasRecord(target)) {
            unlink(PartOf(target).c_str());
            unlink(RecordOf(target).c_str());
        }
    }
}

bool IsPartKept(const std::string& target)
{
    struct stat status = {};
    return HasRecord(target) && stat(PartOf(target).c_str(), &status) == 0;
}

}  // namespace VORTAN_TRANSFER
