#include "Trace.h"

namespace VORTAN_TRANSFER {

Trace::Trace(const std::optional<std::string>& file, Clock::time_point start)
    : m_IsOn(file), m_Start(start)
{
    if (file) {
        m_File.emplace(*file);
    }
}

void Trace::Record(std::size_t source, TraceEvent::Kind kind, std::uint64_t bytes,
                   const std::string& text)
{
    if (!m_IsOn) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_Start);
    m_File->Add({time, source, kind, bytes, text});
}

std::vector<std::string> Trace::Finish()
{
    std::vector<std::string> failures;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    try {
        if (m_File) {
            m_File->Finish();
        }
    } catch (const OutputError& error) {
        failures.emplace_back(error.what());
    }
    return failures;
}

}  // namespace VORTAN_TRANSFER
