#pragma once

#include <ITransferHandler.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

// What one request was meant to deliver and has delivered. Its callbacks write it while others
// read.
struct Entry
{
    std::size_t expectedBody = 0;
    bool expectsBody = false;
    bool tellsItsEnd = false;  // it has a complete callback

    std::atomic<std::size_t> body{0};
    std::atomic<bool> wrongByte{false};
    std::atomic<int> completions{0};
    std::atomic<bool> succeeded{false};
    std::atomic<bool> cancelled{false};        // CancelTransfer returned true
    std::atomic<bool> afterCompletion{false};  // something came after the complete callback

    void Receive(const VORTAN_MW::ITransferHandler::Bytes& chunk);
    void Complete(bool success);
};

// How all requests of a run ended, and everything that must not have happened.
class Journal
{
public:
    // After the manager is gone: nothing of the request can happen any more.
    void File(const Entry& entry);
    void CountRefusal() { ++m_Refused; }

    std::uint64_t Accepted() const { return m_Accepted; }
    // Whether the sums agree; says what does not.
    bool Print() const;

private:
    void m_Blame(const std::string& fault);

    mutable std::mutex m_Mutex;
    std::atomic<std::uint64_t> m_Accepted{0};
    std::atomic<std::uint64_t> m_Refused{0};
    std::uint64_t m_Succeeded = 0;
    std::uint64_t m_Failed = 0;
    std::uint64_t m_Cancelled = 0;
    std::uint64_t m_Silent = 0;
    std::uint64_t m_Bytes = 0;
    std::map<std::string, std::uint64_t> m_Faults;
};
