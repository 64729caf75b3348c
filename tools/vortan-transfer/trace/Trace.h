#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "trace/TraceEvent.h"
#include "trace/TraceFile.h"
#include "trace/TracePlot.h"

namespace VORTAN_TRANSFER {

// Records what happens to the sources, and when, for whoever asked for it.
class Trace
{
public:
    using Clock = std::chrono::steady_clock;

    // Where it is to be written.
    struct Targets
    {
        std::optional<std::string> file;
        std::optional<std::string> plot;
    };

    // Times count from start. Without a target, nothing is recorded. Throws OutputError.
    Trace(const Targets& targets, Clock::time_point start);

    bool IsOn() const { return m_IsOn; }

    // Any thread may record; the times of the events are in their order.
    void Record(std::size_t source, TraceEvent::Kind kind, std::uint64_t bytes = 0,
                const std::string& text = "");

    // No event follows. Returns what could not be written.
    std::vector<std::string> Finish();

private:
    const bool m_IsOn;
    const Clock::time_point m_Start;
    std::mutex m_Mutex;
    // Guarded by m_Mutex:
    std::optional<TraceFile> m_File;
    std::optional<TracePlot> m_Plot;
};

}  // namespace VORTAN_TRANSFER
