#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// A point that threads wait at until another opens it. A wait ends by itself only to report a hang.
class Gate
{
public:
    void Open()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Open = true;
        m_Opened.notify_all();
    }

    // False after a time that no healthy run needs.
    bool Wait()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Opened.wait_for(lock, std::chrono::minutes(2), [&] { return m_Open; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Opened;
    bool m_Open = false;
};
