#pragma once

#include <condition_variable>
#include <mutex>

// A point that threads wait at until another opens it. Allocates nothing.
class Gate
{
public:
    void Open()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Open = true;
        m_Opened.notify_all();
    }

    void Wait()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Opened.wait(lock, [this] { return m_Open; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Opened;
    bool m_Open = false;
};
