#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "Descriptor.h"
#include "Sha256.h"
#include "StopSignal.h"
#include "TransferObserver.h"

namespace VORTAN_MW {
namespace KIT {

// Where the body of a transfer goes.
struct FileTarget
{
    FileTarget(const std::string& itsPath, std::optional<Digest> itsSha256)
        : path(itsPath),
          partPath(path + ".part"),
          recordPath(path + ".part.meta"),
          sha256(itsSha256)
    {}

    const std::string path;
    const std::string partPath;
    const std::string recordPath;
    std::optional<Digest> sha256;  // of the whole file
    bool mayContinue = true;       // with what an earlier transfer has left
    bool needsLength = true;       // unless there is a hash
};

// NAME.part, which takes the name when it is whole, and NAME.part.meta, which says how a later run
// can go on with it. Of one transfer, under a lock.
//
// The record is overwritten in place: a torn one has the wrong checksum and is ignored. It is never
// ahead of the part: bytes are synced first, then recorded; and before bytes of another version are
// written, both the empty part and its record are synced.
//
// What returns false has failed for the reason that Fault() and Detail() tell; nothing works any
// more then but Close.
class PartFile
{
public:
    // The target outlives it.
    explicit PartFile(const FileTarget& target) : m_Target(target) {}
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;
    ~PartFile();

    // Takes the lock, and a part that is there already.
    bool Open();

    struct Version
    {
        std::string url;
        std::string validator;                 // a strong one
        std::optional<std::uint64_t> total;    // length of the whole body
        std::string resource = std::string();  // that answered, after redirects
    };
    // The version of this URL's body that the part has the first Length() bytes of, which are
    // hashed by then. Nothing if there is no such part, or when the transfer is stopped.
    std::optional<Version> Resume(const std::string& url, const StopListener& listener);

    // The body begins, and the part is empty. Without a validator or a total no later run goes on
    // with it.
    bool Begin(const Version& version);
    // Allocates what is missing up to the total, where the file system can.
    bool Reserve();
    bool Write(const char* data, std::size_t length);
    // The body is whole: the file takes the name.
    bool Commit();
    // Releases the lock. A part that a later run can go on with is kept if it is worth it.
    void Close(bool isWorthKeeping);

    std::uint64_t Length() const { return m_Length; }
    // Category::Success if nothing has failed.
    Category Fault() const { return m_Fault; }
    const std::string& Detail() const { return m_Detail; }

private:
    enum class Step
    {
        Done,
        Again,
        Failed,
    };

    Step m_TryToOpen();
    Step m_Lock();
    bool m_OpenRecord();
    bool m_WriteRecord();
    bool m_SyncAndRecord();
    bool m_HashKept(const StopListener& listener);
    void m_Reset();
    bool m_PrepareForLater();
    void m_Discard();
    bool m_IsKeepable() const { return !m_Version.validator.empty() && m_Version.total; }
    void m_LikeTarget();
    bool m_TakeName();
    bool m_Fail(Category category, const std::string& detail = std::string());
    bool m_FailWithErrno();

    const FileTarget& m_Target;
    Descriptor m_Part;
    Descriptor m_Record;
    struct stat m_Status = {};              // of the part
    std::optional<struct stat> m_Replaced;  // the file that it replaces, when it was opened
    Version m_Version;
    std::optional<Sha256> m_Hash;  // if there is one to compare it with
    std::uint64_t m_Length = 0;
    std::uint64_t m_Synced = 0;
    std::chrono::steady_clock::time_point m_SyncedAt;
    bool m_IsClean = false;  // part and record were empty, so nothing stale can come back
    bool m_HasBegun = false;
    Category m_Fault = Category::Success;
    std::string m_Detail;
};

}  // namespace KIT
}  // namespace VORTAN_MW
