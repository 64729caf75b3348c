#include "transfer/Mailbox.h"

#include <limits.h>
#include <pthread.h>

#include <system_error>
#include <utility>

namespace VORTAN_TRANSFER {

// What a thread that is to post WorkerEnded keeps as thread-specific data. The system destroys such
// data after all thread-local objects, in rounds: whatever a destructor sets again is destroyed in
// the next round.
struct Mailbox::ThreadEnd
{
    // By then, libraries have freed their data. Sanitizers let a thread end in the very last round.
    static constexpr int lastRound = PTHREAD_DESTRUCTOR_ITERATIONS - 1;

    static pthread_key_t Key()
    {
        static const pthread_key_t key = [] {
            pthread_key_t made = 0;
            const int error = pthread_key_create(&made, &s_OnRound);
            if (error != 0) {
                throw std::system_error(error, std::generic_category());
            }
            return made;
        }();
        return key;
    }

    std::shared_ptr<Mailbox> mailbox;
    int round = 0;

private:
    static void s_OnRound(void* data)
    {
        std::unique_ptr<ThreadEnd> end(static_cast<ThreadEnd*>(data));
        ++end->round;
        if (end->round < lastRound && pthread_setspecific(Key(), data) == 0) {
            static_cast<void>(end.release());
            return;
        }
        const std::lock_guard<std::mutex> lock(end->mailbox->m_Mutex);
        end->mailbox->m_Events.push_back({Event::Kind::WorkerEnded, 0, {}});
        --end->mailbox->m_Threads;
        end->mailbox->m_Posted.notify_one();
    }
};

void Mailbox::Post(Event event)
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Events.push_back(std::move(event));
    }
    m_Posted.notify_one();
}

std::vector<Event> Mailbox::Receive(const std::chrono::milliseconds* timeout)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    const auto hasEvents = [this] { return !m_Events.empty(); };
    if (timeout) {
        m_Posted.wait_for(lock, *timeout, hasEvents);
    } else {
        m_Posted.wait(lock, hasEvents);
    }
    return std::exchange(m_Events, {});
}

std::vector<Event> Mailbox::ReceiveAtOnce()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return std::exchange(m_Events, {});
}

void Mailbox::PostAtThreadEnd(const std::shared_ptr<Mailbox>& mailbox)
{
    auto end = std::make_unique<ThreadEnd>();
    end->mailbox = mailbox;
    const int error = pthread_setspecific(ThreadEnd::Key(), end.get());
    if (error != 0) {
        throw std::system_error(error, std::generic_category());
    }
    static_cast<void>(end.release());
    const std::lock_guard<std::mutex> lock(mailbox->m_Mutex);
    ++mailbox->m_Threads;
}

void Mailbox::WaitForThreads()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Posted.wait(lock, [this] { return m_Threads == 0; });
}

}  // namespace VORTAN_TRANSFER
