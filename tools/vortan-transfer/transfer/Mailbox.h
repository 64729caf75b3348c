#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "report/Outcome.h"

namespace VORTAN_TRANSFER {

// Something that the transfer queue has to hear of.
struct Event
{
    enum class Kind
    {
        TransferEnded,  // job and outcome tell of it
        WorkerEnded,    // one more transfer may be requested
        Interrupted,
    };

    Kind kind;
    std::size_t job = 0;
    Outcome outcome;
};

// Carries events from the workers, and the thread that waits for signals, to the queue's thread.
class Mailbox
{
public:
    void Post(Event event);

    // Blocks until there is something, or until the time is over if there is one given.
    std::vector<Event> Receive(const std::chrono::milliseconds* timeout);

    // What is there.
    std::vector<Event> ReceiveAtOnce();

    // Posts WorkerEnded when the calling thread has destroyed its thread-local objects, and
    // libraries have freed what they keep for it. Once for each thread.
    static void PostAtThreadEnd(const std::shared_ptr<Mailbox>& mailbox);

    // Blocks until all threads that called PostAtThreadEnd() have posted. Before exit(), which
    // takes away what libraries need to free the data of a thread that is still ending.
    void WaitForThreads();

private:
    struct ThreadEnd;

    std::mutex m_Mutex;
    std::condition_variable m_Posted;
    std::vector<Event> m_Events;  // guarded by m_Mutex
    std::size_t m_Threads = 0;    // that are to post WorkerEnded; guarded by m_Mutex
};

}  // namespace VORTAN_TRANSFER
