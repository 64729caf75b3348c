#include "trace/Timeline.h"

#include <algorithm>

namespace VORTAN_TRANSFER {

void Timeline::Add(const TraceEvent& event)
{
    using Kind = TraceEvent::Kind;
    m_Courses.resize(std::max(m_Courses.size(), event.source + 1));
    Course& course = m_Courses[event.source];
    m_End = event.time;
    switch (event.kind) {
        case Kind::Queued:
            course.source = event.text;
            course.queued = event.time;
            break;
        case Kind::Started:
            course.started = event.time;
            break;
        case Kind::Slept:
            course.slept = event.time;
            break;
        case Kind::FirstHeader:
            course.firstHeader = event.time;
            break;
        case Kind::FirstBody:
            course.firstBody = event.time;
            break;
        case Kind::Chunk:
            m_AddChunk(course, event);
            break;
        case Kind::Complete:
            course.complete = event.time;
            course.result = event.text;
            course.bytes = event.bytes;
            break;
    }
}

void Timeline::m_AddChunk(Course& course, const TraceEvent& event)
{
    while (static_cast<std::uint64_t>(event.time / m_BinWidth) >= MaxBins) {
        m_WidenBins();
    }
    course.bins[static_cast<std::size_t>(event.time / m_BinWidth)] += event.bytes;
}

void Timeline::m_WidenBins()
{
    m_BinWidth *= 2;
    for (Course& course : m_Courses) {
        std::map<std::size_t, std::uint64_t> wider;
        for (const auto& [bin, bytes] : course.bins) {
            wider[bin / 2] += bytes;
        }
        course.bins.swap(wider);
    }
}

}  // namespace VORTAN_TRANSFER
