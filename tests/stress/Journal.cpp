#include "Journal.h"

#include <cstdio>

void Entry::Receive(const VORTAN_MW::ITransferHandler::Bytes& chunk)
{
    // Each body is the same byte over and over, which tells its length apart from others'.
    for (const std::uint8_t byte : chunk) {
        if (byte != static_cast<std::uint8_t>('a' + expectedBody % 26)) {
            wrongByte = true;
        }
    }
    body += chunk.size();
    afterCompletion = afterCompletion || completions > 0;
}

void Entry::Complete(bool success)
{
    succeeded = success;
    ++completions;
}

void Journal::File(const Entry& entry)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    ++m_Accepted;
    m_Bytes += entry.body;
    if (entry.completions > 1) {
        m_Blame("completed twice");
    }
    if (entry.afterCompletion) {
        m_Blame("bytes after the complete callback");
    }
    if (entry.wrongByte) {
        m_Blame("bytes of another transfer");
    }
    if (entry.body > entry.expectedBody) {
        m_Blame("more bytes than were sent");
    }
    if (entry.completions > 0) {
        ++(entry.succeeded ? m_Succeeded : m_Failed);
        if (entry.succeeded && entry.expectsBody && entry.body != entry.expectedBody) {
            m_Blame("a part passed off as whole");
        }
        if (!entry.succeeded && !entry.cancelled) {
            m_Blame("failed, though the source was there");
        }
    } else if (entry.cancelled) {
        ++m_Cancelled;
    } else if (!entry.tellsItsEnd) {
        ++m_Silent;
    } else {
        m_Blame("neither completed nor cancelled");
    }
}

void Journal::m_Blame(const std::string& fault)
{
    ++m_Faults[fault];
}

bool Journal::Print() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto print = [](const char* what, std::uint64_t count) {
        std::printf("%-42s %12llu\n", what, static_cast<unsigned long long>(count));
    };
    print("accepted", m_Accepted);
    print("  completed with success", m_Succeeded);
    print("  completed with failure", m_Failed);
    print("  cancelled", m_Cancelled);
    print("  without a complete callback", m_Silent);
    print("refused (four under way, or shutting down)", m_Refused);
    print("bytes", m_Bytes);
    for (const auto& [fault, count] : m_Faults) {
        print(("WRONG: " + fault).c_str(), count);
    }
    const std::uint64_t ended = m_Succeeded + m_Failed + m_Cancelled + m_Silent;
    if (ended != m_Accepted) {
        std::printf("WRONG: %llu requests have no end\n",
                    static_cast<unsigned long long>(m_Accepted - ended));
    }
    return m_Faults.empty() && ended == m_Accepted;
}
