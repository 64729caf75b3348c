#pragma once

#include <mutex>

namespace QXCurl {

// Counts who holds the SSL library's locks. Any thread may call it at any time.
class SslLock
{
public:
    void Take()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        ++m_Holders;
    }

    // False if nobody holds them.
    bool Release()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Holders == 0) {
            return false;
        }
        --m_Holders;
        return true;
    }

private:
    std::mutex m_Mutex;
    unsigned long m_Holders = 0;  // guarded by m_Mutex
};

}  // namespace QXCurl
