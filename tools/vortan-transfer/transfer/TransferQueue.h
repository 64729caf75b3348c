#pragma once

#include <ITransferAgentManager.h>

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

// Runs all transfers of a command line, as many side by side as the library takes.
class TransferQueue
{
public:
    // An Interrupted event in the mailbox ends the queue early.
    // Throws OutputError if there is no place for a trace, whose times count from start.
    TransferQueue(Arguments arguments, std::shared_ptr<Mailbox> mailbox,
                  Trace::Clock::time_point start);

    // Returns when all has ended and was reported.
    ExitStatus Run();

private:
    void m_StartNext();
    void m_Start(std::size_t job);
    void m_TraceEnd(std::size_t job, const Outcome& outcome);
    void m_Handle(const Event& event);
    void m_TakeOutcome(std::size_t job, const Outcome& outcome);
    void m_ShowProgress();
    Progress m_Progress() const;
    void m_CancelRunning();
    void m_WaitForWorkers();
    void m_ReportInterrupted();
    void m_FinishReports();

    const Arguments m_Arguments;
    const std::shared_ptr<Mailbox> m_Mailbox;
    Console m_Console;
    Report m_Report;
    Trace m_Trace;
    std::unique_ptr<VORTAN_MW::ITransferAgentManager> m_Manager;

    std::size_t m_Next = 0;  // the first job that has not been started
    std::size_t m_Ended = 0;
    std::size_t m_FreeWorkers;
    std::map<std::size_t, std::shared_ptr<Transfer>> m_Running;
    std::uint64_t m_ReceivedByEnded = 0;
    RateMeter m_Rate;
    bool m_Interrupted = false;
};

}  // namespace VORTAN_TRANSFER
