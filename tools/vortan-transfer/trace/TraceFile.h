#pragma once

#include <optional>
#include <string>

#include "base/Output.h"
#include "trace/TraceEvent.h"

namespace VORTAN_TRANSFER {

// Writes events into a file, a line each, until that fails.
class TraceFile
{
public:
    // Throws OutputError.
    explicit TraceFile(const std::string& target) : m_Output(target) {}

    void Add(const TraceEvent& event);

    // No event follows. Throws the OutputError that kept events from being written.
    void Finish();

private:
    Output m_Output;
    std::optional<OutputError> m_Error;
};

}  // namespace VORTAN_TRANSFER
