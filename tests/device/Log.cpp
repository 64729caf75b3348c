// A log library in the stand-in's place, with lines that tell where they come from.

#include <dlog.h>

#include <cstdarg>
#include <cstdio>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the device's.
extern "C" int __dlog_print(int /*log_id*/, int prio, const char* tag, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    flockfile(stderr);
    int written = std::fprintf(stderr, "device %d %s ", prio, tag);
    written += std::vfprintf(stderr, fmt, arguments);
    written += std::fprintf(stderr, "\n");
    funlockfile(stderr);
    va_end(arguments);
    return written;
}
