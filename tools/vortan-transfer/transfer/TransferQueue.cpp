#include "transfer/TransferQueue.h"

#include <AsyncTransferAgentManager.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "base/LibraryLog.h"
#include "base/Text.h"

namespace VORTAN_TRANSFER {

namespace {

// The library refuses more. A transfer counts until its worker thread has ended, which is shortly
// after the transfer itself.
constexpr std::size_t MaxParallelTransfers = 4;

constexpr std::chrono::milliseconds ProgressInterval(200);

}  // namespace

TransferQueue::TransferQueue(Arguments arguments, std::shared_ptr<Mailbox> mailbox,
                             Trace::Clock::time_point start)
    : m_Arguments(std::move(arguments)),
      m_Mailbox(std::move(mailbox)),
      m_Report(m_Arguments, m_Console),
      m_Trace(m_Arguments.trace, start),
      m_Manager(VORTAN_MW::AsyncTransferAgentManager::Create()),
      m_FreeWorkers(MaxParallelTransfers)
{}

ExitStatus TransferQueue::Run()
{
    for (std::size_t job = 0; job < m_Arguments.jobs.size(); ++job) {
        m_Trace.Record(job, TraceEvent::Kind::Queued, 0, m_Arguments.jobs[job].source.text);
    }
    while (m_Ended < m_Arguments.jobs.size() && !m_Interrupted) {
        m_StartNext();
        m_ShowProgress();
        for (const Event& event :
             m_Mailbox->Receive(m_Report.ShowsProgress() ? &ProgressInterval : nullptr)) {
            m_Handle(event);
        }
    }
    m_Console.ClearProgress();
    if (m_Interrupted) {
        m_CancelRunning();
    }
    m_WaitForWorkers();
    m_ReportInterrupted();
    m_FinishReports();
    return m_Interrupted ? Interrupted : m_Report.Status();
}

void TransferQueue::m_StartNext()
{
    for (; m_FreeWorkers > 0 && m_Next < m_Arguments.jobs.size(); ++m_Next) {
        m_Start(m_Next);
    }
}

void TransferQueue::m_Start(std::size_t job)
{
    const Source& source = m_Arguments.jobs[job].source;
    Outcome refusal;
    try {
        const Transfer::Delivery delivery = {
            m_Arguments.segmented, m_Arguments.includeHeader && source.handler->speaksHttp};
        const auto transfer =
            std::make_shared<Transfer>(job, source, Output(m_Arguments.jobs[job].target), delivery,
                                       *m_Manager, m_Mailbox, m_Trace);
        ForgetLibraryError();
        if (Transfer::Start(transfer, m_Arguments.request)) {
            m_Running[job] = transfer;
            --m_FreeWorkers;
            return;
        }
        refusal = WithoutTransfer(TransferFailed, Printable(LastLibraryError()));
    } catch (const OutputError& error) {
        refusal = WithoutTransfer(CannotWrite, error.what());
    } catch (const std::system_error& error) {
        refusal = WithoutTransfer(TransferFailed,
                                  "no thread can be started: " + ErrorText(error.code().value()));
    }
    m_TraceEnd(job, refusal);
    m_Mailbox->Post({Event::Kind::TransferEnded, job, refusal});
}

void TransferQueue::m_TraceEnd(std::size_t job, const Outcome& outcome)
{
    m_Trace.Record(job, TraceEvent::Kind::Complete, outcome.received, ResultName(outcome));
}

void TransferQueue::m_Handle(const Event& event)
{
    switch (event.kind) {
        case Event::Kind::TransferEnded:
            m_TakeOutcome(event.job, event.outcome);
            break;
        case Event::Kind::WorkerEnded:
            ++m_FreeWorkers;
            break;
        case Event::Kind::Interrupted:
            m_Interrupted = true;
            break;
    }
}

void TransferQueue::m_TakeOutcome(std::size_t job, const Outcome& outcome)
{
    ++m_Ended;
    const auto running = m_Running.find(job);
    if (running != m_Running.end()) {
        m_ReceivedByEnded += running->second->CurrentProgress().received;
        m_Running.erase(running);
    }
    m_Report.Add(job, outcome);
}

void TransferQueue::m_ShowProgress()
{
    if (m_Report.ShowsProgress()) {
        const Progress progress = m_Progress();
        m_Rate.Add(std::chrono::steady_clock::now(), progress.received);
        m_Console.ShowProgress(ProgressLine(progress, m_Rate.BytesPerSecond(), Console::Room()));
    }
}

Progress TransferQueue::m_Progress() const
{
    Progress progress;
    progress.received = m_ReceivedByEnded;
    progress.ended = m_Ended;
    progress.transfers = m_Arguments.jobs.size();
    if (m_Next == m_Arguments.jobs.size()) {
        progress.total = m_ReceivedByEnded;
    }
    for (const auto& [job, transfer] : m_Running) {
        const Transfer::Progress own = transfer->CurrentProgress();
        progress.received += own.received;
        progress.total = progress.total && own.total ? std::optional(*progress.total + *own.total)
                                                     : std::nullopt;
    }
    return progress;
}

void TransferQueue::m_CancelRunning()
{
    for (const auto& [job, transfer] : m_Running) {
        transfer->Cancel();
    }
    if (!m_Running.empty()) {
        m_Console.Line("interrupted, waiting for the running transfers to end");
    }
}

void TransferQueue::m_WaitForWorkers()
{
    m_Manager.reset();
    // The agent waits only for those that still had a transfer.
    m_Mailbox->WaitForThreads();
    // Some transfers may have ended by themselves just before they were cancelled.
    for (const Event& event : m_Mailbox->ReceiveAtOnce()) {
        m_Handle(event);
    }
}

void TransferQueue::m_ReportInterrupted()
{
    const auto report = [this](std::size_t job, const Outcome& outcome) {
        m_TraceEnd(job, outcome);
        m_Report.Add(job, outcome);
    };
    for (const auto& [job, transfer] : m_Running) {
        report(job, transfer->OutcomeNow(Interrupted, "interrupted"));
    }
    m_Running.clear();  // and with them their partial files
    for (; m_Next < m_Arguments.jobs.size(); ++m_Next) {
        report(m_Next, WithoutTransfer(Interrupted, "interrupted before it was started"));
    }
}

void TransferQueue::m_FinishReports()
{
    for (const std::string& failure : m_Trace.Finish()) {
        m_Report.AddUnwritten(failure);
    }
    m_Report.Finish();
}

}  // namespace VORTAN_TRANSFER
