#pragma once

#include <semaphore.h>

#include <memory>

// Tells one thread that another one, which is detached, has come to its end. A std::promise that is
// set at thread exit does the same, but takes more than what there is to measure of the agent.
class ThreadEnd
{
public:
    ThreadEnd();
    ThreadEnd(const ThreadEnd&) = delete;
    ThreadEnd& operator=(const ThreadEnd&) = delete;
    ~ThreadEnd();

    // Called on the thread that is meant: Tell is called when it has returned from its function and
    // destroys its thread-local objects.
    static void TellAtExit(std::shared_ptr<ThreadEnd> end);

    // Lets Wait return, which it does once for each call.
    void Tell();
    void Wait();

private:
    sem_t m_Told;
};
