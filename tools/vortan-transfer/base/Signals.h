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

    enum class Wish
    {
        Interrupt,  // SIGINT: a person waits, and may ask again
        Terminate,  // the others: the program is to end soon
    };

    // The first signal calls this. A second one ends the program at once, and so does the end of
    // the time that a program has when it is to terminate. What is temporary is removed first.
    void OnFirst(std::function<void(Wish)> action);

private:
    void m_Listen();
    void m_Take(Wish wish);

    std::mutex m_Mutex;
    std::function<void(Wish)> m_Action;  // guarded by m_Mutex
    int m_Patience = -1;                 // milliseconds for poll(); the listener's
    FileDescriptor m_Arrivals;
    FileDescriptor m_Stop;
    std::thread m_Thread;
};

}  // namespace VORTAN_TRANSFER
