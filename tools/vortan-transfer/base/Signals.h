#pragma once

#include <functional>
#include <mutex>
#include <thread>

#include "base/FileDescriptor.h"

namespace VORTAN_TRANSFER {

// Receives SIGINT, SIGTERM and SIGHUP, those of them that are not ignored, on a thread of its own,
// where an action may do what no signal handler may. All other threads are undisturbed.
class Signals
{
public:
    // To be made before any other thread is started. Until OnFirst() is called, a signal ends the
    // program.
    Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals();

    // The first signal calls this. A second one removes all temporary files and ends the program at
    // once.
    void OnFirst(std::function<void()> action);

private:
    void m_Listen();
    void m_Take();

    std::mutex m_Mutex;
    std::function<void()> m_Action;  // guarded by m_Mutex
    FileDescriptor m_Arrivals;
    FileDescriptor m_Stop;
    std::thread m_Thread;
};

}  // namespace VORTAN_TRANSFER
