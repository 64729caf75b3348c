#include "SystemCalls.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

// The linker gives the kit's calls to __wrap_..., and the system's functions the names __real_...
// It refuses hidden ones if a library, such as a sanitizer's, calls a function of that name.
#pragma GCC visibility push(default)
extern "C" {
int WrapOpen(const char* path, int flags, ...) __asm__("__wrap_open64");
int RealOpen(const char* path, int flags, ...) __asm__("__real_open64");
ssize_t WrapPwrite(int file, const void* data, std::size_t length,
                   off_t offset) __asm__("__wrap_pwrite64");
ssize_t RealPwrite(int file, const void* data, std::size_t length,
                   off_t offset) __asm__("__real_pwrite64");
ssize_t WrapPread(int file, void* data, std::size_t length, off_t offset) __asm__("__wrap_pread64");
ssize_t RealPread(int file, void* data, std::size_t length, off_t offset) __asm__("__real_pread64");
int WrapTruncate(int file, off_t length) __asm__("__wrap_ftruncate64");
int RealTruncate(int file, off_t length) __asm__("__real_ftruncate64");
int WrapAllocate(int file, int mode, off_t from, off_t length) __asm__("__wrap_fallocate64");
int RealAllocate(int file, int mode, off_t from, off_t length) __asm__("__real_fallocate64");
int WrapFsync(int file) __asm__("__wrap_fsync");
int RealFsync(int file) __asm__("__real_fsync");
int WrapFdatasync(int file) __asm__("__wrap_fdatasync");
int RealFdatasync(int file) __asm__("__real_fdatasync");
int WrapFlock(int file, int operation) __asm__("__wrap_flock");
int RealFlock(int file, int operation) __asm__("__real_flock");
int WrapRename(const char* from, const char* to) __asm__("__wrap_rename");
int RealRename(const char* from, const char* to) __asm__("__real_rename");
int WrapUnlink(const char* path) __asm__("__wrap_unlink");
int RealUnlink(const char* path) __asm__("__real_unlink");
}
#pragma GCC visibility pop

namespace {

struct CallWatch
{
    bool isOn = false;
    std::vector<std::string> names;
    std::string failing;
    std::size_t failingNumber = 0;
    int error = 0;
    bool hasFailed = false;
    std::string awaited;
    std::function<void()> act;
};

thread_local CallWatch s_Watch;

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string KindOf(const std::string& path)
{
    if (EndsWith(path, ".part")) {
        return " part";
    }
    if (EndsWith(path, ".part.meta")) {
        return " record";
    }
    return " other";
}

std::string KindOf(int file)
{
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    return KindOf(std::string(path, length < 0 ? 0 : static_cast<std::size_t>(length)));
}

// Notes the call. True, with errno set, if it fails.
template <typename File>
bool Fails(const char* call, const File& file)
{
    if (!s_Watch.isOn) {
        return false;
    }
    s_Watch.isOn = false;  // what follows is not the kit's
    const std::string name = call + KindOf(file);
    s_Watch.names.push_back(name);
    if (name == s_Watch.awaited) {
        s_Watch.awaited.clear();
        s_Watch.act();
    }
    const bool fails = s_Watch.error != 0 && !s_Watch.hasFailed &&
                       (name == s_Watch.failing || s_Watch.names.size() == s_Watch.failingNumber);
    s_Watch.hasFailed = s_Watch.hasFailed || fails;
    s_Watch.isOn = true;
    if (fails) {
        errno = s_Watch.error;
    }
    return fails;
}

}  // namespace

SystemCalls::SystemCalls()
{
    s_Watch = CallWatch();
    s_Watch.isOn = true;
}

SystemCalls::~SystemCalls()
{
    s_Watch = CallWatch();
}

std::vector<std::string> SystemCalls::Names() const
{
    return s_Watch.names;
}

void SystemCalls::Fail(const std::string& name, int error)
{
    s_Watch.failing = name;
    s_Watch.error = error;
}

void SystemCalls::FailNumber(std::size_t number, int error)
{
    s_Watch.failingNumber = number;
    s_Watch.error = error;
}

void SystemCalls::Before(const std::string& name, std::function<void()> act)
{
    s_Watch.awaited = name;
    s_Watch.act = std::move(act);
}

bool SystemCalls::HasFailed()
{
    return s_Watch.hasFailed;
}

int WrapOpen(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned int) : 0;
    va_end(arguments);
    return Fails("open", std::string(path)) ? -1 : RealOpen(path, flags, mode);
}

ssize_t WrapPwrite(int file, const void* data, std::size_t length, off_t offset)
{
    return Fails("pwrite", file) ? -1 : RealPwrite(file, data, length, offset);
}

ssize_t WrapPread(int file, void* data, std::size_t length, off_t offset)
{
    return Fails("pread", file) ? -1 : RealPread(file, data, length, offset);
}

int WrapTruncate(int file, off_t length)
{
    return Fails("ftruncate", file) ? -1 : RealTruncate(file, length);
}

int WrapAllocate(int file, int mode, off_t from, off_t length)
{
    return Fails("fallocate", file) ? -1 : RealAllocate(file, mode, from, length);
}

int WrapFsync(int file)
{
    return Fails("fsync", file) ? -1 : RealFsync(file);
}

int WrapFdatasync(int file)
{
    return Fails("fdatasync", file) ? -1 : RealFdatasync(file);
}

int WrapFlock(int file, int operation)
{
    return Fails("flock", file) ? -1 : RealFlock(file, operation);
}

int WrapRename(const char* from, const char* to)
{
    return Fails("rename", std::string(from)) ? -1 : RealRename(from, to);
}

int WrapUnlink(const char* path)
{
    return Fails("unlink", std::string(path)) ? -1 : RealUnlink(path);
}
