#pragma once

#include <condition_variable>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

// Writes once a second what the process holds: seconds since the start, resident KiB, open file
// descriptors, threads. In columns, as gnuplot reads them.
class Sampler
{
public:
    explicit Sampler(const std::string& path);
    ~Sampler();
    Sampler(const Sampler&) = delete;
    Sampler& operator=(const Sampler&) = delete;

private:
    void m_Run();

    std::ofstream m_Samples;
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    bool m_Ending = false;
    std::thread m_Thread;
};
