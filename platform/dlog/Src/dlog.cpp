#include "dlog.h"

#include <cstdarg>
#include <cstdio>

extern "C" __attribute__((visibility("default"))) int __dlog_print(int, int, const char* tag,
                                                                   const char* fmt, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, fmt);
    std::vsnprintf(line, sizeof line, fmt, arguments);
    va_end(arguments);
    return std::fprintf(stderr, "%s %s\n", tag, line);
}
