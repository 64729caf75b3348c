#pragma once

#include <string>

#include "base/Output.h"
#include "trace/Timeline.h"
#include "trace/TimelinePlot.h"
#include "trace/TraceEvent.h"

namespace VORTAN_TRANSFER {

// Draws events into a file once they are all known. Throws OutputError.
class TracePlot
{
public:
    explicit TracePlot(const std::string& target) : m_Output(target) {}

    void Add(const TraceEvent& event) { m_Timeline.Add(event); }

    // No event follows.
    void Finish()
    {
        m_Output.Write(DrawTimeline(m_Timeline));
        m_Output.Commit();
    }

private:
    Output m_Output;
    Timeline m_Timeline;
};

}  // namespace VORTAN_TRANSFER
