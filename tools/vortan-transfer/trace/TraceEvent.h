#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace VORTAN_TRANSFER {

// Something that the program sees happen to a source.
struct TraceEvent
{
    enum class Kind
    {
        Queued,       // text: the source
        Started,      // it is requested
        Slept,        // its delay is over
        FirstHeader,  // the first line of the header arrives
        FirstBody,    // the first bytes of the body arrive
        Chunk,        // bytes of the body arrive, bytes: how many
        Complete,     // bytes: those of the whole body, text: the result
    };

    std::chrono::microseconds time;  // since the program's start
    std::size_t source;              // which of the command line
    Kind kind;
    std::uint64_t bytes = 0;
    std::string text = {};
};

}  // namespace VORTAN_TRANSFER
