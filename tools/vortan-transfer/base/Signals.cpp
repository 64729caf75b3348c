#include "base/Signals.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <utility>

#include "base/ExitStatus.h"
#include "base/Leftovers.h"

namespace VORTAN_TRANSFER {

namespace {

bool IsIgnored(int signal)
{
    struct sigaction current = {};
    return sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

// What nohup and the like have switched off stays off.
sigset_t SignalsToReceive()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (!IsIgnored(signal)) {
            sigaddset(&signals, signal);
        }
    }
    return signals;
}

[[noreturn]] void EndAtOnce()
{
    RemoveTemporaryForGood();
    _exit(Interrupted);
}

FileDescriptor Checked(int descriptor)
{
    if (descriptor < 0) {
        ThrowErrno();
    }
    return FileDescriptor(descriptor);
}

}  // namespace

Signals::Signals()
{
    const sigset_t signals = SignalsToReceive();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    m_Arrivals = Checked(signalfd(-1, &signals, SFD_CLOEXEC));
    m_Stop = Checked(eventfd(0, EFD_CLOEXEC));
    m_Thread = std::thread(&Signals::m_Listen, this);
}

Signals::~Signals()
{
    const std::uint64_t one = 1;
    WriteAll(m_Stop.Get(), &one, sizeof one);
    m_Thread.join();
}

void Signals::OnFirst(std::function<void(Wish)> action)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Action = std::move(action);
}

void Signals::m_Listen()
{
    pollfd waited[] = {{m_Arrivals.Get(), POLLIN, 0}, {m_Stop.Get(), POLLIN, 0}};
    for (;;) {
        const int ready = poll(waited, 2, m_Patience);
        if (ready < 0) {
            continue;
        }
        if (ready == 0) {
            EndAtOnce();
        }
        if (waited[1].revents != 0) {
            return;
        }
        signalfd_siginfo signal = {};
        ReadSome(m_Arrivals.Get(), &signal, sizeof signal);
        m_Take(signal.ssi_signo == SIGINT ? Wish::Interrupt : Wish::Terminate);
    }
}

void Signals::m_Take(Wish wish)
{
    std::function<void(Wish)> action;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        action = std::exchange(m_Action, nullptr);
    }
    if (!action) {
        EndAtOnce();
    }
    if (wish == Wish::Terminate) {
        m_Patience = 950;  // less than a second: whoever sent the signal may kill the program then
    }
    action(wish);
}

}  // namespace VORTAN_TRANSFER
