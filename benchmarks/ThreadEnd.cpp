#include "ThreadEnd.h"

#include <utility>

namespace {

class AtThreadExit
{
public:
    AtThreadExit() = default;
    AtThreadExit(const AtThreadExit&) = delete;
    AtThreadExit& operator=(const AtThreadExit&) = delete;
    ~AtThreadExit()
    {
        if (m_End) {
            m_End->Tell();
        }
    }

    void Set(std::shared_ptr<ThreadEnd> end) { m_End = std::move(end); }

private:
    std::shared_ptr<ThreadEnd> m_End;
};

thread_local AtThreadExit t_AtThreadExit;

}  // namespace

ThreadEnd::ThreadEnd()
{
    sem_init(&m_Told, 0, 0);
}

ThreadEnd::~ThreadEnd()
{
    sem_destroy(&m_Told);
}

void ThreadEnd::TellAtExit(std::shared_ptr<ThreadEnd> end)
{
    t_AtThreadExit.Set(std::move(end));
}

void ThreadEnd::Tell()
{
    sem_post(&m_Told);
}

void ThreadEnd::Wait()
{
    while (sem_wait(&m_Told) != 0) {  // a signal came in between
    }
}
