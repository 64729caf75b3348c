#pragma once

#include <ITransferAgentManager.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A request of which one thing fails, made in a process of its own: what is documented to end the
// process does. Each trial also sees to it that no lock is left held, no job filed and nothing
// leaked, and that the next request of the same agent succeeds.

// A kind of failure.
struct Fault
{
    // The number-th thing of this kind fails from now on, counted from 1; none if it is 0.
    void (*arm)(long number);
    // None fails any more. Returns what did, or null.
    const char* (*disarm)();
    // How many things there are that somebody has to free.
    long (*live)();
    // live() is 0 whenever no transfer is under way. Else what is made once in a process is made
    // before the trial.
    bool livesInTransfers;
    // What the log says if the failure is an exception.
    const char* reason;
};

// The length of the body that the next request fetches.
constexpr std::size_t BodyLength = 100000;

struct Scenario
{
    VORTAN_MW::ITransferAgentManager::TransferConfiguration pattern;
    std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> (*makeFactory)();
    std::string nextUrl;
};

template <typename Factory>
std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> Make()
{
    return std::make_unique<Factory>();
}

struct Outcome
{
    // "over", "refused" (RequestTransfer raised an exception), "ends the process" (the exception
    // has been logged), "ends the process at once" (it has not), or in capitals what must not be.
    const char* ending;
    char failed[200];  // empty if nothing did
    // What the client was told.
    bool success;
    bool hasCode;
    long code;
    std::size_t length;
    // The beginning of what it received.
    char header[4000];
    char body[4000];
};

Outcome Try(const Scenario& scenario, const Fault& fault, long number);

using Endings = std::vector<std::pair<std::string, std::string>>;

// For nothing, and then for each thing of this kind, in order: what failed, and how the request
// ended then. With success, that tells how the lines of the body, and of the header those that
// begin with "X-Seen", differ: "success 200 -a line that is missing +a line instead".
Endings FailEach(const Scenario& scenario, const Fault& fault);

// Counts the calls of a double, of which one is to fail.
class CallCount
{
public:
    void Arm(long number)
    {
        m_Countdown = number;
        m_Failed.clear();
    }

    const char* Disarm()
    {
        m_Countdown = 0;
        return m_Failed.empty() ? nullptr : m_Failed.c_str();
    }

    // Whether this call, of that name, is the one.
    bool Fails(const std::string& name)
    {
        if (m_Countdown == 0 || --m_Countdown != 0) {
            return false;
        }
        m_Failed = name;
        return true;
    }

private:
    long m_Countdown = 0;
    std::string m_Failed;
};
