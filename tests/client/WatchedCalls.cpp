// Stands between the client program and the system, by means of the linker: notes the calls that
// make a file, and lets some fail or others come between.
//
// WATCHED_CALLS names a file that gets a line for each: what was called, and on what ("fsync part",
// "fsync folder"). WATCHED_FAULTS holds words of the form "fsync:part=5": the first such call fails
// with that error number. With "others-made" a file is there under the first name that is chosen
// for a partial file, and with "others-removed" the first partial file is removed as soon as it is
// made.

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <string>

// The linker gives the program's calls to Watched..., and the system's functions these names. It
// refuses hidden ones if a library, such as a sanitizer's, calls a function of that name.
#pragma GCC visibility push(default)
extern "C" {
int WatchedOpen(const char* path, int flags, ...) __asm__("__wrap_open64");
int RealOpen(const char* path, int flags, ...) __asm__("__real_open64");
int WatchedFlock(int descriptor, int operation) __asm__("__wrap_flock");
int RealFlock(int descriptor, int operation) __asm__("__real_flock");
ssize_t WatchedRead(int descriptor, void* to, std::size_t size) __asm__("__wrap_read");
ssize_t RealRead(int descriptor, void* to, std::size_t size) __asm__("__real_read");
ssize_t WatchedWrite(int descriptor, const void* from, std::size_t size) __asm__("__wrap_write");
ssize_t RealWrite(int descriptor, const void* from, std::size_t size) __asm__("__real_write");
int WatchedPoll(pollfd* waited, nfds_t count, int timeout) __asm__("__wrap_poll");
int RealPoll(pollfd* waited, nfds_t count, int timeout) __asm__("__real_poll");
int WatchedFchown(int descriptor, uid_t user, gid_t group) __asm__("__wrap_fchown");
int RealFchown(int descriptor, uid_t user, gid_t group) __asm__("__real_fchown");
int WatchedFchmod(int descriptor, mode_t mode) __asm__("__wrap_fchmod");
int RealFchmod(int descriptor, mode_t mode) __asm__("__real_fchmod");
int WatchedFsync(int descriptor) __asm__("__wrap_fsync");
int RealFsync(int descriptor) __asm__("__real_fsync");
int WatchedClose(int descriptor) __asm__("__wrap_close");
int RealClose(int descriptor) __asm__("__real_close");
int WatchedRename(const char* from, const char* to) __asm__("__wrap_rename");
int RealRename(const char* from, const char* to) __asm__("__real_rename");
}
#pragma GCC visibility pop

namespace {

std::string Variable(const char* name)
{
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets it.
    return value ? value : "";
}

bool IsPart(const std::string& path)
{
    const std::string end = ".part";
    return path.size() > end.size() && path.substr(path.size() - end.size()) == end;
}

// "part", "folder", or empty for what does not matter.
std::string KindOf(int descriptor)
{
    struct stat status = {};
    if (fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
        return "folder";
    }
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    char path[4096] = {};
    const bool isKnown = readlink(link.c_str(), path, sizeof path - 1) > 0;
    return isKnown && IsPart(path) ? "part" : "";
}

std::set<std::string> RequestedFaults()
{
    std::istringstream words(Variable("WATCHED_FAULTS"));
    return {std::istream_iterator<std::string>(words), {}};
}

// Takes the word that begins like this out of the requested faults: each happens once. Returns the
// rest of it, or nothing if there is no such word.
std::optional<std::string> TakeFault(const std::string& begin)
{
    static std::mutex mutex;
    static auto& faults = *new std::set<std::string>(RequestedFaults());
    const std::lock_guard<std::mutex> lock(mutex);
    const auto fault = faults.lower_bound(begin);
    if (fault == faults.end() || fault->substr(0, begin.size()) != begin) {
        return std::nullopt;
    }
    return faults.extract(fault).value().substr(begin.size());
}

bool Fails(const std::string& call)
{
    const std::optional<std::string> number = TakeFault(call + "=");
    if (number) {
        errno = std::stoi(*number);
    }
    return number.has_value();
}

void Note(const std::string& call)
{
    const std::string log = Variable("WATCHED_CALLS");
    if (log.empty()) {
        return;
    }
    std::FILE* const file = std::fopen(log.c_str(), "ae");
    std::fputs((call + "\n").c_str(), file);
    std::fclose(file);
}

// Whether the call on the descriptor fails.
bool Watch(const std::string& call, int descriptor)
{
    const std::string kind = KindOf(descriptor);
    if (kind.empty()) {
        return false;
    }
    Note(call + " " + kind);
    return Fails(call + ":" + kind);
}

}  // namespace

// The mode is optional, but the program always passes it.
int WatchedOpen(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    const bool isPart = IsPart(path);
    if (isPart && TakeFault("others-made")) {
        const int file = RealOpen(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        RealWrite(file, "theirs", 6);
        RealClose(file);
    }
    const bool isFolder = (static_cast<unsigned>(flags) & static_cast<unsigned>(O_DIRECTORY)) != 0;
    if (isFolder && Fails("open:folder")) {
        return -1;
    }
    const int descriptor = RealOpen(path, flags, mode);
    if (isPart && TakeFault("others-removed")) {
        unlink(path);
    }
    return descriptor;
}

int WatchedFlock(int descriptor, int operation)
{
    return Watch("flock", descriptor) ? -1 : RealFlock(descriptor, operation);
}

ssize_t WatchedRead(int descriptor, void* to, std::size_t size)
{
    return Fails("read") ? -1 : RealRead(descriptor, to, size);
}

ssize_t WatchedWrite(int descriptor, const void* from, std::size_t size)
{
    return Watch("write", descriptor) ? -1 : RealWrite(descriptor, from, size);
}

int WatchedPoll(pollfd* waited, nfds_t count, int timeout)
{
    return Fails("poll:" + KindOf(waited[0].fd)) ? -1 : RealPoll(waited, count, timeout);
}

int WatchedFchown(int descriptor, uid_t user, gid_t group)
{
    return Watch("fchown", descriptor) ? -1 : RealFchown(descriptor, user, group);
}

int WatchedFchmod(int descriptor, mode_t mode)
{
    return Watch("fchmod", descriptor) ? -1 : RealFchmod(descriptor, mode);
}

int WatchedFsync(int descriptor)
{
    return Watch("fsync", descriptor) ? -1 : RealFsync(descriptor);
}

// Closes in any case, as the system does.
int WatchedClose(int descriptor)
{
    const bool fails = Watch("close", descriptor);
    const int error = errno;
    const int result = RealClose(descriptor);
    errno = fails ? error : errno;
    return fails ? -1 : result;
}

int WatchedRename(const char* from, const char* to)
{
    const int part = RealOpen(from, O_WRONLY | O_CLOEXEC);
    const bool isLocked = RealFlock(part, LOCK_EX | LOCK_NB) != 0;
    RealClose(part);
    Note(isLocked ? "rename" : "rename without a lock");
    return Fails("rename") ? -1 : RealRename(from, to);
}
