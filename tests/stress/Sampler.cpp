#include "Sampler.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <stdexcept>

namespace {

long ResidentKiB()
{
    std::ifstream statistics("/proc/self/statm");
    long all = 0;
    long resident = 0;
    statistics >> all >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

std::ptrdiff_t EntriesIn(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

}  // namespace

Sampler::Sampler(const std::string& path) : m_Samples(path, std::ios::trunc)
{
    if (!m_Samples) {
        throw std::runtime_error("cannot write " + path);
    }
    m_Thread = std::thread([this] { m_Run(); });
}

Sampler::~Sampler()
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Ending = true;
    }
    m_Wake.notify_one();
    m_Thread.join();
}

void Sampler::m_Run()
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    std::unique_lock<std::mutex> lock(m_Mutex);
    while (!m_Ending) {
        m_Samples << std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count()
                  << ' ' << ResidentKiB() << ' ' << EntriesIn("/proc/self/fd") << ' '
                  << EntriesIn("/proc/self/task") << std::endl;
        m_Wake.wait_for(lock, std::chrono::seconds(1));
    }
}
