#include "trace/Trace.h"

namespace VORTAN_TRANSFER {

namespace {

// Finishes what there is to be finished, and notes it if that cannot be written.
template <typename Part>
void FinishPart(std::optional<Part>& part, std::vector<std::string>& failures)
{
    try {
        if (part) {
            part->Finish();
        }
    } catch (const OutputError& error) {
        failures.emplace_back(error.what());
    }
}

}  // namespace

Trace::Trace(const Targets& targets, Clock::time_point start)
    : m_IsOn(targets.file || targets.plot), m_Start(start)
{
    if (targets.file) {
        m_File.emplace(*targets.file);
    }
    if (targets.plot) {
        m_Plot.emplace(*targets.plot);
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
    const TraceEvent event = {time, source, kind, bytes, text};
    if (m_File) {
        m_File->Add(event);
    }
    if (m_Plot) {
        m_Plot->Add(event);
    }
}

std::vector<std::string> Trace::Finish()
{
    std::vector<std::string> failures;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    FinishPart(m_File, failures);
    FinishPart(m_Plot, failures);
    return failures;
}

}  // namespace VORTAN_TRANSFER
