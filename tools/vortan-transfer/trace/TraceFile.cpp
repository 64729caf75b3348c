#include "trace/TraceFile.h"

#include "trace/TraceLine.h"

namespace VORTAN_TRANSFER {

void TraceFile::Add(const TraceEvent& event)
{
    if (m_Error) {
        return;
    }
    try {
        m_Output.Write(TraceLineOf(event));
    } catch (const OutputError& error) {
        m_Error = error;
    }
}

void TraceFile::Finish()
{
    if (m_Error) {
        throw *m_Error;
    }
    m_Output.Commit();
}

}  // namespace VORTAN_TRANSFER
