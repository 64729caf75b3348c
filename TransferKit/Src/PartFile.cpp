#include "PartFile.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <system_error>

#include "FileSystem.h"
#include "PartRecord.h"
#include "Url.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// How much a kill may cost. Each sync delays the transfer, on flash by tens of milliseconds.
constexpr std::uint64_t MostUnsynced = std::uint64_t{4} * 1024 * 1024;
constexpr std::chrono::seconds LongestUnsynced(2);

constexpr int OpenFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
constexpr mode_t OwnerOnly = 0600;
constexpr mode_t AsUmaskSays = 0666;
constexpr mode_t Permissions = 0777;

// Nobody else can have it open for writing or reach it under another name.
bool IsOwn(const struct stat& status)
{
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

std::optional<struct stat> StatusOf(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? std::optional<struct stat>(status) : std::nullopt;
}

bool IsSameFile(const struct stat& one, const std::optional<struct stat>& other)
{
    return other && one.st_dev == other->st_dev && one.st_ino == other->st_ino;
}

}  // namespace

PartFile::~PartFile()
{
    Close(true);
}

bool PartFile::Open()
{
    m_Replaced = StatusOf(m_Target.path);
    Step step = Step::Again;
    while (step == Step::Again) {
        step = m_TryToOpen();
    }
    if (step != Step::Done) {
        m_Part = Descriptor();
    }
    return step == Step::Done && m_OpenRecord();
}

// Others may make, rename and remove the file meanwhile: then it is tried again.
PartFile::Step PartFile::m_TryToOpen()
{
    const auto found = StatusOfLink(m_Target.partPath);
    if (found && !S_ISREG(found->st_mode)) {  // opening a device may have effects
        m_Fail(Category::FileFailed, "something that is no file has the name of its part");
        return Step::Failed;
    }
    // A target that others may not read has a part that they may not read.
    const mode_t mode = StatusOfLink(m_Target.path) ? OwnerOnly : AsUmaskSays;
    const int flags = found ? OpenFlags : OpenFlags | O_CREAT | O_EXCL;
    m_Part = Descriptor(open(m_Target.partPath.c_str(), flags, mode));
    if (m_Part.Number() < 0) {
        const bool isLost = errno == EINTR || errno == (found ? ENOENT : EEXIST);
        return isLost || m_FailWithErrno() ? Step::Again : Step::Failed;
    }
    const Step step = m_Lock();
    if (step != Step::Done || !found || IsOwn(m_Status)) {
        return step;
    }
    return unlink(m_Target.partPath.c_str()) == 0 || m_FailWithErrno() ? Step::Again : Step::Failed;
}

PartFile::Step PartFile::m_Lock()
{
    while (flock(m_Part.Number(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            fstat(m_Part.Number(), &m_Status);
            const long holder = HolderOf(m_Status);
            m_Fail(Category::Busy, holder == 0 ? "" : "process " + std::to_string(holder));
            return Step::Failed;
        }
        if (errno != EINTR) {
            m_FailWithErrno();
            return Step::Failed;
        }
    }
    if (fstat(m_Part.Number(), &m_Status) != 0) {
        m_FailWithErrno();
        return Step::Failed;
    }
    // Whoever had the lock before may have given the file its final name.
    return IsSameFile(m_Status, StatusOfLink(m_Target.partPath)) ? Step::Done : Step::Again;
}

bool PartFile::m_OpenRecord()
{
    const auto found = StatusOfLink(m_Target.recordPath);
    if (found && !IsOwn(*found) && unlink(m_Target.recordPath.c_str()) != 0) {
        return m_FailWithErrno();
    }
    m_Record = Descriptor(open(m_Target.recordPath.c_str(), OpenFlags | O_CREAT, OwnerOnly));
    struct stat status = {};
    if (m_Record.Number() < 0 || fstat(m_Record.Number(), &status) != 0) {
        return m_FailWithErrno();
    }
    m_IsClean = m_Status.st_size == 0 && status.st_size == 0;
    return true;
}

std::optional<PartFile::Version> PartFile::Resume(const std::string& url,
                                                  const StopListener& listener)
{
    constexpr std::size_t longestRecord = 65536;
    const auto record = PartRecord::Parse(ReadBegin(m_Record.Number(), longestRecord));
    const bool isUsable = record && record->url == url && record->device == m_Status.st_dev &&
                          record->inode == m_Status.st_ino &&
                          record->synced <= static_cast<std::uint64_t>(m_Status.st_size);
    if (!isUsable) {
        return std::nullopt;
    }
    m_Version = Version{url, record->validator, record->total, record->resource};
    m_Synced = record->synced;
    // What follows the synced bytes may be anything.
    if (!m_HashKept(listener) || ftruncate(m_Part.Number(), static_cast<off_t>(m_Synced)) != 0) {
        return std::nullopt;
    }
    m_Length = m_Synced;
    m_SyncedAt = std::chrono::steady_clock::now();
    return m_Version;
}

// False if the part cannot be read, or if it takes longer than the transfer may.
bool PartFile::m_HashKept(const StopListener& listener)
{
    m_Reset();
    std::string buffer(m_Hash ? 65536 : 0, '\0');
    for (std::uint64_t at = 0; m_Hash && at < m_Synced;) {
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), m_Synced - at));
        const ssize_t count = pread(m_Part.Number(), &buffer[0], wanted, static_cast<off_t>(at));
        if (listener.IsStopped() || count == 0 || (count < 0 && errno != EINTR)) {
            return false;
        }
        if (count > 0) {
            m_Hash->Update(buffer.data(), static_cast<std::size_t>(count));
            at += static_cast<std::uint64_t>(count);
        }
    }
    return true;
}

void PartFile::m_Reset()
{
    m_Hash.reset();
    if (m_Target.sha256) {
        m_Hash.emplace();
    }
    m_Length = 0;
}

bool PartFile::Begin(const Version& version)
{
    m_Reset();
    m_Synced = 0;
    m_Version = version;
    // A record is made of lines.
    if (version.url.empty() ||
        HasControlCharacter(version.url + version.validator + version.resource)) {
        m_Version.validator.clear();
    }
    const bool isWritten = ftruncate(m_Part.Number(), 0) == 0 &&
                           (m_IsClean || SyncFile(m_Part.Number())) && m_WriteRecord() &&
                           (m_IsClean || SyncFile(m_Record.Number()));
    m_IsClean = false;
    m_HasBegun = true;
    m_SyncedAt = std::chrono::steady_clock::now();
    return isWritten ? Reserve() : m_FailWithErrno();
}

bool PartFile::Reserve()
{
    const std::uint64_t total = m_Version.total.value_or(0);
    if (total > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
        errno = EFBIG;
        return m_FailWithErrno();
    }
    if (total <= m_Length) {
        return true;
    }
    // The size stays what has been written.
    const auto from = static_cast<off_t>(m_Length);
    const auto length = static_cast<off_t>(total - m_Length);
    while (fallocate(m_Part.Number(), FALLOC_FL_KEEP_SIZE, from, length) != 0) {
        if (errno == ENOSPC || errno == EDQUOT || errno == EFBIG) {
            return m_FailWithErrno();
        }
        if (errno != EINTR) {
            break;  // the file system cannot: a full disk is seen when it is written to
        }
    }
    return true;
}

bool PartFile::Write(const char* data, std::size_t length)
{
    if (m_Fault != Category::Success) {
        return false;
    }
    if (m_Version.total && length > *m_Version.total - m_Length) {
        return m_Fail(Category::InvalidResponse, "the body is longer than announced");
    }
    if (!WriteAt(m_Part.Number(), m_Length, data, length)) {
        return m_FailWithErrno();
    }
    if (m_Hash) {
        m_Hash->Update(data, length);
    }
    m_Length += length;
    const bool isDue = m_Length - m_Synced >= MostUnsynced ||
                       std::chrono::steady_clock::now() - m_SyncedAt >= LongestUnsynced;
    return !isDue || !m_IsKeepable() || m_SyncAndRecord() || m_FailWithErrno();
}

bool PartFile::m_SyncAndRecord()
{
    if (!SyncBytes(m_Part.Number())) {
        return false;
    }
    m_Synced = m_Length;
    m_SyncedAt = std::chrono::steady_clock::now();
    return m_WriteRecord();
}

// A record that can be used only once bytes are kept.
bool PartFile::m_WriteRecord()
{
    std::string text;
    if (m_IsKeepable()) {
        PartRecord record;
        record.url = m_Version.url;
        record.validator = m_Version.validator;
        record.total = *m_Version.total;
        record.synced = m_Synced;
        record.device = m_Status.st_dev;
        record.inode = m_Status.st_ino;
        record.resource = m_Version.resource;
        text = record.Format();
    }
    return WriteAt(m_Record.Number(), 0, text.data(), text.size()) &&
           ftruncate(m_Record.Number(), static_cast<off_t>(text.size())) == 0;
}

bool PartFile::Commit()
{
    if (m_Fault != Category::Success) {
        return false;
    }
    if (m_Version.total && m_Length != *m_Version.total) {
        return m_Fail(Category::InvalidResponse, "the body is shorter than announced");
    }
    if (m_Hash && m_Hash->Finish() != *m_Target.sha256) {
        return m_Fail(Category::WrongHash);
    }
    m_LikeTarget();
    if (!SyncFile(m_Part.Number())) {
        return m_FailWithErrno();
    }
    m_Synced = m_Length;
    return (m_WriteRecord() && m_TakeName()) || m_FailWithErrno();
}

// Gives the part the permissions, and as far as allowed the owner, of the file that it replaces, as
// it is or, if it is gone meanwhile, was.
// The permissions come last: a new owner must not get those of the old one's group.
void PartFile::m_LikeTarget()
{
    const std::optional<struct stat> current = StatusOf(m_Target.path);
    if (!current && !m_Replaced) {
        return;
    }
    const struct stat& target = current ? *current : *m_Replaced;
    constexpr mode_t group = 0070;
    const int part = m_Part.Number();
    const bool isOfGroup = fchown(part, target.st_uid, target.st_gid) == 0 ||
                           fchown(part, static_cast<uid_t>(-1), target.st_gid) == 0;
    const mode_t mode = target.st_mode & (isOfGroup ? Permissions : Permissions & ~group);
    // Not every file system has permissions.
    static_cast<void>(fchmod(part, mode));
}

bool PartFile::m_TakeName()
{
    if (!IsSameFile(m_Status, StatusOfLink(m_Target.partPath))) {
        errno = ENOENT;  // somebody has removed it
        return false;
    }
    // A folder that may be written to, but not read, cannot be synced.
    const Descriptor folder = OpenFolderOf(m_Target.path);
    const bool isReadable = folder.Number() >= 0 || errno != EACCES;
    if (folder.Number() < 0 && isReadable) {
        return false;
    }
    if (rename(m_Target.partPath.c_str(), m_Target.path.c_str()) != 0) {
        return false;
    }
    const bool isSynced = !isReadable || SyncFile(folder.Number());
    const int reason = errno;
    unlink(m_Target.recordPath.c_str());
    m_Record = Descriptor();
    m_Part = Descriptor();
    errno = reason;
    return isSynced;
}

void PartFile::Close(bool isWorthKeeping)
{
    if (m_Part.Number() < 0) {
        return;
    }
    const bool isUseless = m_HasBegun ? !m_IsKeepable() || m_Length == 0 : m_IsClean;
    try {
        if (!isWorthKeeping || isUseless || !m_PrepareForLater()) {
            m_Discard();
        }
    } catch (const std::bad_alloc&) {
        // The record is that of the last sync.
    }
    flock(m_Part.Number(), LOCK_UN);  // a child made by fork would keep it
    m_Part = Descriptor();
    m_Record = Descriptor();
}

// False if there is nothing that a later run could use.
bool PartFile::m_PrepareForLater()
{
    if (m_Length == 0) {  // no response has come
        return true;
    }
    // Also gives back what was allocated.
    if (ftruncate(m_Part.Number(), static_cast<off_t>(m_Length)) != 0) {
        return false;
    }
    // A sync that failed may report success the second time, with the bytes lost.
    const bool maySync = m_Fault != Category::FileFailed && m_Length > m_Synced;
    return maySync ? m_SyncAndRecord() : m_Synced > 0;
}

void PartFile::m_Discard()
{
    if (IsSameFile(m_Status, StatusOfLink(m_Target.partPath))) {
        unlink(m_Target.recordPath.c_str());
        unlink(m_Target.partPath.c_str());
    }
}

bool PartFile::m_Fail(Category category, const std::string& detail)
{
    m_Fault = category;
    m_Detail = detail;
    return false;
}

bool PartFile::m_FailWithErrno()
{
    return m_Fail(Category::FileFailed, std::generic_category().message(errno));
}

}  // namespace KIT
}  // namespace VORTAN_MW
