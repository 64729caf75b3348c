#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "report/Outcome.h"

namespace VORTAN_TRANSFER {

// Something that the job runner has to hear of.
struct Event
{
    enum class Kind
    {
        TransferEnded,  // job and outcome tell of it
        Interrupted,    // the user wants no more transfers
        Terminated,     // the program is to end within a second
    };

    Kind kind;
    std::size_t job = 0;
    Outcome outcome;
};

// Carries events from the workers, and the thread that waits for signals, to the runner's thread.
class Mailbox
{
public:
    void Post(Event event);

    // Blocks until there is something, or until the time is over if there is one given.
    std::vector<Event> Receive(const std::chrono::milliseconds* timeout);

private:
    std::mutex m_Mutex;
    std::condition_variable m_Posted;
    std::vector<Event> m_Events;  // guarded by m_Mutex
};

}  // namespace VORTAN_TRANSFER
