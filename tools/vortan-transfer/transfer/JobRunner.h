#pragma once

#include <HttpSession.h>
#include <TransferQueue.h>

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>

#include "base/Console.h"
#include "base/ExitStatus.h"
#include "options/Arguments.h"
#include "report/Progress.h"
#include "report/Report.h"
#include "trace/Trace.h"
#include "transfer/Mailbox.h"
#include "transfer/Transfer.h"

namespace VORTAN_TRANSFER {

// Runs all transfers of a command line through one queue of the kit's.
class JobRunner
{
public:
    // An Interrupted or Terminated event in the mailbox ends the run early.
    // Throws OutputError if there is no place for a trace, whose times count from start; UsageError
    // if the limits contradict each other or the certificate authorities cannot be read.
    JobRunner(Arguments arguments, std::shared_ptr<Mailbox> mailbox,
              Trace::Clock::time_point start);

    // Returns when all has ended and was reported. After a Terminated event it ends the program
    // itself if a transfer does not end in time.
    ExitStatus Run();

private:
    class Tickets;

    void m_StartNext();
    void m_Start(std::size_t job);
    void m_TraceEnd(std::size_t job, const Outcome& outcome);
    void m_HandleEvents(const std::chrono::milliseconds* timeout);
    void m_TakeOutcome(std::size_t job, const Outcome& outcome);
    void m_AdviseToContinue(std::size_t job);
    void m_ShowProgress();
    Progress m_Progress() const;
    void m_EndEarly();
    void m_ReportInterrupted();
    void m_FinishReports();

    const Arguments m_Arguments;
    const std::shared_ptr<Mailbox> m_Mailbox;
    Console m_Console;
    Report m_Report;
    Trace m_Trace;

    std::size_t m_Next = 0;  // the first job that has not been started
    std::size_t m_Ended = 0;
    std::map<std::size_t, std::shared_ptr<Transfer>> m_Running;
    std::uint64_t m_ReceivedByEnded = 0;
    std::uint64_t m_SentByEnded = 0;
    RateMeter m_Rate;
    bool m_IsInterrupted = false;
    bool m_IsUrgent = false;
    std::atomic<bool> m_IsStopping{false};

    const std::shared_ptr<VORTAN_MW::KIT::HttpSession> m_Session;
    const std::shared_ptr<Tickets> m_Tickets;
    const Setting m_Setting;
    // Last: its destructor waits for the transfers, which use the others.
    VORTAN_MW::KIT::TransferQueue m_Queue;
};

}  // namespace VORTAN_TRANSFER
