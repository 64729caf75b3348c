#include "transfer/JobRunner.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "base/Leftovers.h"
#include "base/Place.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "transfer/TransferRequest.h"

namespace VORTAN_TRANSFER {

namespace {

constexpr std::chrono::milliseconds ProgressInterval(200);

// How long cancelled transfers may take when the program is to terminate within a second.
constexpr std::chrono::milliseconds Patience(700);

std::shared_ptr<VORTAN_MW::KIT::HttpSession> MakeSession(
    const VORTAN_MW::KIT::TransferPolicy& policy)
{
    try {
        return std::make_shared<VORTAN_MW::KIT::HttpSession>(policy);
    } catch (const std::logic_error& error) {
        throw UsageError(Printable(error.what()));
    } catch (const std::runtime_error& error) {
        throw UsageError(Printable(error.what()));
    }
}

}  // namespace

// Knows the transfer of each ticket, and passes the outcome on.
class JobRunner::Tickets : public VORTAN_MW::KIT::ITransferQueueObserver
{
public:
    // Throws what MakeTransferRequest and the queue throw.
    void Add(VORTAN_MW::KIT::TransferQueue& queue, const std::shared_ptr<Transfer>& transfer)
    {
        auto request = MakeTransferRequest(transfer);
        // An outcome may come before the ticket is known; it waits here.
        const std::lock_guard<std::mutex> lock(m_Mutex);
        transfer->OnRequest();
        const auto ticket = queue.Add(std::move(request));
        m_Transfers[ticket] = transfer;
        transfer->OnAccepted(ticket);
    }

    void OnOutcome(VORTAN_MW::KIT::Ticket ticket,
                   const VORTAN_MW::KIT::TransferOutcome& outcome) override
    {
        std::shared_ptr<Transfer> transfer;
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            transfer = std::move(m_Transfers.extract(ticket).mapped());
        }
        transfer->OnOutcome(outcome);
    }

private:
    std::mutex m_Mutex;
    std::map<VORTAN_MW::KIT::Ticket, std::shared_ptr<Transfer>> m_Transfers;  // guarded by m_Mutex
};

JobRunner::JobRunner(Arguments arguments, std::shared_ptr<Mailbox> mailbox,
                     Trace::Clock::time_point start)
    : m_Arguments(std::move(arguments)),
      m_Mailbox(std::move(mailbox)),
      m_Report(m_Arguments, m_Console),
      m_Trace(m_Arguments.trace, start),
      m_Session(MakeSession(m_Arguments.policy)),
      m_Tickets(std::make_shared<Tickets>()),
      m_Setting{m_Arguments, *m_Session, m_Queue, *m_Mailbox, m_Trace, m_IsStopping},
      m_Queue(m_Session, m_Tickets)
{}

ExitStatus JobRunner::Run()
{
    for (std::size_t job = 0; job < m_Arguments.jobs.size(); ++job) {
        m_Trace.Record(job, TraceEvent::Kind::Queued, 0, m_Arguments.jobs[job].source.text);
    }
    while (m_Ended < m_Arguments.jobs.size() && !m_IsInterrupted) {
        m_StartNext();
        m_ShowProgress();
        m_HandleEvents(m_Report.ShowsProgress() ? &ProgressInterval : nullptr);
    }
    m_Console.ClearProgress();
    if (m_IsInterrupted) {
        m_EndEarly();
    }
    m_FinishReports();
    if (!m_Running.empty()) {
        RemoveTemporaryForGood();
        _exit(Interrupted);
    }
    return m_IsInterrupted ? Interrupted : m_Report.Status();
}

void JobRunner::m_StartNext()
{
    while (m_Running.size() < m_Arguments.parallel && m_Next < m_Arguments.jobs.size()) {
        m_Start(m_Next++);
    }
}

void JobRunner::m_Start(std::size_t job)
{
    Outcome refusal;
    try {
        const auto transfer = std::make_shared<Transfer>(job, m_Setting);
        m_Tickets->Add(m_Queue, transfer);
        m_Running[job] = transfer;
        return;
    } catch (const OutputError& error) {
        refusal = WithoutTransfer(CannotWrite, error.what());
        refusal.category = VORTAN_MW::KIT::Category::FileFailed;
    } catch (const std::invalid_argument& error) {
        refusal = WithoutTransfer(TransferFailed, Printable(error.what()));
        refusal.category = VORTAN_MW::KIT::Category::InvalidRequest;
    }
    m_TraceEnd(job, refusal);
    m_Mailbox->Post({Event::Kind::TransferEnded, job, refusal});
}

void JobRunner::m_TraceEnd(std::size_t job, const Outcome& outcome)
{
    m_Trace.Record(job, TraceEvent::Kind::Complete, outcome.received, ResultName(outcome));
}

void JobRunner::m_HandleEvents(const std::chrono::milliseconds* timeout)
{
    for (const Event& event : m_Mailbox->Receive(timeout)) {
        if (event.kind == Event::Kind::TransferEnded) {
            m_TakeOutcome(event.job, event.outcome);
        } else {
            m_IsInterrupted = true;
            m_IsUrgent = event.kind == Event::Kind::Terminated;
        }
    }
}

void JobRunner::m_TakeOutcome(std::size_t job, const Outcome& outcome)
{
    ++m_Ended;
    m_Running.erase(job);
    m_ReceivedByEnded += outcome.received;
    m_SentByEnded += outcome.sent;
    m_Report.Add(job, outcome);
    if (outcome.status == Interrupted) {
        m_AdviseToContinue(job);
    }
}

// That all was interrupted is said once; what is left of each has to be said of each.
void JobRunner::m_AdviseToContinue(std::size_t job)
{
    const Place place = FindPlace(m_Arguments.jobs[job].target);
    const std::string advice = place.descriptor ? "" : AdviceToContinue(place.path);
    if (!advice.empty()) {
        m_Console.Line(Printable(m_Arguments.jobs[job].source.text) + ": " + advice);
    }
}

void JobRunner::m_ShowProgress()
{
    if (m_Report.ShowsProgress()) {
        const Progress progress = m_Progress();
        m_Rate.Add(std::chrono::steady_clock::now(), progress.received + progress.sent);
        m_Console.ShowProgress(ProgressLine(progress, m_Rate.BytesPerSecond(), Console::Room()));
    }
}

Progress JobRunner::m_Progress() const
{
    using std::chrono::seconds;
    const auto now = Meter::Clock::now();
    const bool hasAllBegun = m_Next == m_Arguments.jobs.size();
    Progress progress;
    progress.received = m_ReceivedByEnded;
    progress.sent = m_SentByEnded;
    progress.ended = m_Ended;
    progress.transfers = m_Arguments.jobs.size();
    progress.total = hasAllBegun ? std::optional(m_ReceivedByEnded) : std::nullopt;
    progress.toSend = hasAllBegun ? std::optional(m_SentByEnded) : std::nullopt;
    auto lastByte = Meter::Clock::time_point::min();
    auto waitsUntil = Meter::Clock::time_point::max();
    bool areAllWaiting = !m_Running.empty();
    const auto add = [](std::optional<std::uint64_t>& sum, std::optional<std::uint64_t> own) {
        sum = sum && own ? std::optional(*sum + *own) : std::nullopt;
    };
    for (const auto& [job, transfer] : m_Running) {
        const Meter::Reading own = transfer->TheMeter().Read();
        progress.received += own.received;
        progress.sent += own.sent;
        add(progress.total, own.total);
        add(progress.toSend, own.toSend);
        lastByte = std::max(lastByte, own.lastByte);
        areAllWaiting = areAllWaiting && own.waitsUntil;
        waitsUntil = std::min(waitsUntil, own.waitsUntil.value_or(now));
    }
    if (areAllWaiting) {
        progress.wait =
            std::chrono::ceil<seconds>(std::max(waitsUntil - now, Meter::Clock::duration()));
    }
    if (!m_Running.empty()) {
        progress.silence = std::chrono::duration_cast<seconds>(now - lastByte);
    }
    return progress;
}

// Waits for the transfers that are cancelled, and reports what is known of the others.
void JobRunner::m_EndEarly()
{
    const auto begin = std::chrono::steady_clock::now();
    m_Console.Line(m_IsUrgent ? "interrupted" : "interrupted; again to stop at once");
    m_IsStopping = true;
    m_Queue.CancelAll();
    while (!m_Running.empty()) {
        const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - begin);
        const auto left = Patience - passed;
        if (m_IsUrgent && left.count() <= 0) {
            break;
        }
        m_HandleEvents(m_IsUrgent ? &left : nullptr);
    }
    m_ReportInterrupted();
}

void JobRunner::m_ReportInterrupted()
{
    const auto report = [this](std::size_t job, Outcome outcome) {
        outcome.category = VORTAN_MW::KIT::Category::Cancelled;
        m_TraceEnd(job, outcome);
        m_Report.Add(job, outcome);
    };
    for (const auto& [job, transfer] : m_Running) {
        report(job, transfer->OutcomeNow(Interrupted, "interrupted"));
    }
    for (; m_Next < m_Arguments.jobs.size(); ++m_Next) {
        report(m_Next, WithoutTransfer(Interrupted, "interrupted before it was started"));
    }
}

void JobRunner::m_FinishReports()
{
    for (const std::string& failure : m_Trace.Finish()) {
        m_Report.AddUnwritten(failure);
    }
    m_Report.Finish();
}

}  // namespace VORTAN_TRANSFER
