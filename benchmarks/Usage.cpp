#include "Usage.h"

#include <sys/resource.h>

#include <fstream>
#include <string>

namespace {

std::chrono::microseconds ToMicroseconds(const timeval& time)
{
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

long FromStatus(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != name) {
    }
    long value = 0;
    status >> value;
    return value;
}

}  // namespace

std::chrono::microseconds CpuTime()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return ToMicroseconds(usage.ru_utime) + ToMicroseconds(usage.ru_stime);
}

long ResidentMemory()
{
    return FromStatus("VmRSS:");
}

long PeakMemory()
{
    return FromStatus("VmHWM:");
}
