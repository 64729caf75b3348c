// Takes the place of the platform's log: shows lines as they come, on standard error.

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the log's name
extern "C" __attribute__((visibility("default"), format(printf, 4, 5))) int __dlog_print(
    int /*buffer*/, int /*priority*/, const char* /*tag*/, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    vdprintf(STDERR_FILENO, format, arguments);
    va_end(arguments);
    return dprintf(STDERR_FILENO, "\n");
}
