#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "trace/TraceEvent.h"

namespace VORTAN_TRANSFER {

// The course of all transfers, in memory that does not grow with their length: chunks that are
// close to each other, seen from afar, are added up.
class Timeline
{
public:
    using Time = std::chrono::microseconds;

    // What is known of one source.
    struct Course
    {
        std::string source;
        Time queued{};
        std::optional<Time> started;
        std::optional<Time> slept;
        std::optional<Time> firstHeader;
        std::optional<Time> firstBody;
        std::optional<Time> complete;
        std::string result;                         // once it is complete
        std::uint64_t bytes = 0;                    // once it is complete
        std::map<std::size_t, std::uint64_t> bins;  // the bytes that arrived in each
    };

    static constexpr std::size_t MaxBins = 1024;

    // Times do not decrease.
    void Add(const TraceEvent& event);

    // In the order of the command line.
    const std::vector<Course>& Courses() const { return m_Courses; }

    // The time of the last event.
    Time End() const { return m_End; }

    // How long each bin lasts. The first begins at 0.
    Time BinWidth() const { return m_BinWidth; }

private:
    void m_AddChunk(Course& course, const TraceEvent& event);
    void m_WidenBins();

    std::vector<Course> m_Courses;
    Time m_End{};
    Time m_BinWidth{1};
};

}  // namespace VORTAN_TRANSFER
