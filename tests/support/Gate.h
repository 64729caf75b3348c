#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "Patience.h"

// A point that threads wait at until another opens it. A wait ends by itself only to report a hang.
class Gate
{
public:
    // The line that declares a gate names it.
    explicit Gate(const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : m_File(file), m_Line(line)
    {}

    void Open()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Open = true;
        m_Opened.notify_all();
    }

    // False, and a failure of the test at the caller's line, if nobody opens the gate in time.
    bool Wait(const char* file = __builtin_FILE(), int line = __builtin_LINE())
    {
        return WaitFor(Patience, file, line);
    }

    // The same for what takes long by itself.
    bool WaitFor(std::chrono::seconds patience, const char* file = __builtin_FILE(),
                 int line = __builtin_LINE())
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        if (m_Opened.wait_for(lock, patience, [&] { return m_Open; })) {
            return true;
        }
        ADD_FAILURE_AT(file, line)
            << "gave up waiting after " << patience.count() << " s for the gate of " << m_File
            << ":" << m_Line << " to be opened";
        return false;
    }

private:
    const char* const m_File;
    const int m_Line;
    std::mutex m_Mutex;
    std::condition_variable m_Opened;
    bool m_Open = false;
};
