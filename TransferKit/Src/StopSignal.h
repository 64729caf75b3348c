#pragma once

#include <curl/curl.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace VORTAN_MW {
namespace KIT {

// One running transfer as those see it who may stop it. The transfer's thread waits; any thread
// stops.
class StopListener
{
public:
    StopListener() = default;
    StopListener(const StopListener&) = delete;
    StopListener& operator=(const StopListener&) = delete;

    // Wakes the transfer, wherever it waits. Once stopped, it stays so.
    void Stop();
    bool IsStopped() const;

    // Waits on behalf of the transfer. Returns at once, with true, when it is stopped.
    bool WaitFor(std::chrono::milliseconds time);

    // While it lives, stopping also ends the multi handle's poll.
    class Attachment
    {
    public:
        Attachment(StopListener& listener, CURLM* multi);
        Attachment(const Attachment&) = delete;
        Attachment& operator=(const Attachment&) = delete;
        ~Attachment();

    private:
        StopListener& m_Listener;
    };

private:
    mutable std::mutex m_Mutex;
    std::condition_variable m_Wakeup;
    bool m_Stopped = false;    // guarded by m_Mutex
    CURLM* m_Multi = nullptr;  // guarded by m_Mutex
};

// Stops any number of transfers at once: those of one factory, or of one session. It does nothing
// in a forked child, where no transfer runs and the mutex may be held for ever.
class StopSource
{
public:
    StopSource();
    StopSource(const StopSource&) = delete;
    StopSource& operator=(const StopSource&) = delete;

    // Stops those that are registered, and each one that registers later.
    void Stop();

    // An element of the source's list, so that registering needs no memory.
    class Registration
    {
    public:
        Registration(StopSource& source, StopListener& listener);
        Registration(const Registration&) = delete;
        Registration& operator=(const Registration&) = delete;
        ~Registration();

    private:
        friend class StopSource;

        StopSource& m_Source;
        StopListener& m_Listener;
        Registration* m_Previous = nullptr;  // guarded by the source's mutex
        Registration* m_Next = nullptr;      // guarded by the source's mutex
    };

private:
    bool m_IsOfThisProcess() const;

    const long m_Process;
    std::mutex m_Mutex;
    bool m_Stopped = false;           // guarded by m_Mutex
    Registration* m_First = nullptr;  // guarded by m_Mutex
};

}  // namespace KIT
}  // namespace VORTAN_MW
