#include "transfer/Transfer.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/LibraryLog.h"
#include "base/Text.h"
#include "transfer/Validator.h"

namespace VORTAN_TRANSFER {

using VORTAN_MW::KIT::Category;
using VORTAN_MW::KIT::TransferEvent;
using VORTAN_MW::KIT::TransferOutcome;

namespace {

constexpr long HttpOk = 200;
constexpr long FirstErrorStatus = 400;

// The kit asks for ranges itself, and writes no file of one that the user asks for.
bool AsksForRange(const VORTAN_MW::ITransferHandler::Configuration& request)
{
    return std::any_of(request.headers.begin(), request.headers.end(), [](const auto& header) {
        const std::string name = LowerCase(header.first);
        return name == "range" || name == "if-range";
    });
}

}  // namespace

Transfer::Transfer(std::size_t job, const Setting& setting)
    : m_Index(job), m_Setting(setting), m_File(Output::FileBehind(m_TheJob().target))
{
    if (!m_File) {
        m_Stream.emplace(m_TheJob().target);
    }
}

void Transfer::OnRequest()
{
    m_Started = std::chrono::steady_clock::now();
    m_Setting.trace.Record(m_Index, TraceEvent::Kind::Started);
}

void Transfer::OnAccepted(Ticket ticket)
{
    m_TicketPromise.set_value(ticket);
}

bool Transfer::WritesHeader() const
{
    return m_Setting.arguments.includeHeader && TheSource().handler->speaksHttp;
}

bool Transfer::IsSessionsOwn() const
{
    const auto& request = m_Setting.arguments.request;
    const bool isPlainFile = !WritesHeader() && request.failOnError && !AsksForRange(request);
    return TheSource().handler->IsSession() && (!m_File || isPlainFile);
}

bool Transfer::KeepsValidator() const
{
    return m_Setting.arguments.ifChanged && TheSource().handler->IsSession() && m_File;
}

void Transfer::OnBegin()
{
    const auto& request = m_Setting.arguments.request;
    if (!std::exchange(m_HasAttempt, true)) {
        if (request.randomDelay || request.fixedDelay) {
            m_Setting.trace.Record(m_Index, TraceEvent::Kind::Slept);
        }
        if (m_File) {
            m_PartWatch.emplace(*m_File);
        }
    }
    ++m_Attempts;
}

void Transfer::OnHeader(const Bytes& lines)
{
    m_TraceFirstHeader();
    m_Header.Add({reinterpret_cast<const char*>(lines.data()), lines.size()});
    if (!TheSource().handler->IsSession()) {  // its events tell the length
        m_Meter.SetTotal(m_Header.BodyLength());
    }
    // What comes after the body has begun are trailers, which would pass for a part of it.
    if (m_Stream && WritesHeader() && !m_HasBodyBegun) {
        m_Write(lines);
    }
}

bool Transfer::OnHandlerEnd(long httpStatus)
{
    m_HandlerStatus = httpStatus;
    return !m_IsHeaderCut() && !m_Setting.isStopping;
}

// A connection that breaks ends such a body as well.
bool Transfer::m_IsEndUnknown() const
{
    return m_File && IsSessionsOwn() && Sha256().empty() && !m_Header.TellsEnd();
}

bool Transfer::m_IsHeaderCut() const
{
    return m_HasHeaderBegun && !TheSource().handler->IsSession() && !m_Header.IsWhole();
}

void Transfer::m_TraceFirstHeader()
{
    if (!std::exchange(m_HasHeaderBegun, true)) {
        m_Setting.trace.Record(m_Index, TraceEvent::Kind::FirstHeader);
    }
}

void Transfer::OnBody(const Bytes& bytes)
{
    OnChunk(bytes.size());
    m_Write(bytes);
}

void Transfer::OnChunk(std::uint64_t size)
{
    if (size == 0 || !m_StreamFault.empty()) {
        return;
    }
    if (!std::exchange(m_HasBodyBegun, true)) {
        m_Setting.trace.Record(m_Index, TraceEvent::Kind::FirstBody);
    }
    m_Setting.trace.Record(m_Index, TraceEvent::Kind::Chunk, size);
    m_Meter.AddReceived(size);
}

void Transfer::m_Write(const Bytes& bytes)
{
    if (!m_StreamFault.empty()) {
        return;  // the transfer is about to stop
    }
    try {
        m_Stream->Write(bytes);
    } catch (const OutputError& error) {
        m_StreamFault = error.what();
        m_Setting.queue.Cancel(m_TicketPromise.get_future().get());
    }
}

void Transfer::OnEvent(const TransferEvent& event)
{
    switch (event.GetKind()) {
        case TransferEvent::Kind::Attempt:
            m_OnAttempt(event);
            break;
        case TransferEvent::Kind::Header:
            m_TraceFirstHeader();
            if (!event.GetRedirectTarget().empty()) {
                m_RedirectedTo = event.GetRedirectTarget();
            }
            break;
        case TransferEvent::Kind::Retry:
            m_Meter.SetWait(std::chrono::steady_clock::now() + event.GetDelay());
            break;
        case TransferEvent::Kind::End:
            m_SessionEnd.emplace(event.GetOutcome());
            break;
        default:
            break;
    }
    m_TakeProgress(event);
}

void Transfer::m_OnAttempt(const TransferEvent& event)
{
    if (!m_HasAttempt) {
        m_Delivered = event.GetBytesDelivered();  // by an earlier run
    }
    m_Meter.SetWait(std::nullopt);
    m_RedirectedTo.clear();
    OnBegin();
}

// Where the kit writes the file, its events are the only ones who know how far it has come.
void Transfer::m_TakeProgress(const TransferEvent& event)
{
    m_Meter.SetSent(event.GetBytesUploaded());
    const std::uint64_t delivered = event.GetBytesDelivered();
    // A file that had to begin again has fewer bytes than before.
    const std::uint64_t added = delivered - (delivered < m_Delivered ? 0 : m_Delivered);
    m_Delivered = delivered;
    if (m_File && IsSessionsOwn()) {
        OnChunk(added);
    }
    if (event.GetBytesExpected() >= 0) {
        const auto expected = static_cast<std::uint64_t>(event.GetBytesExpected());
        m_Meter.SetTotal(m_Meter.Read().received + expected - std::min(expected, delivered));
    }
}

Outcome Transfer::OutcomeNow(ExitStatus status, const std::string& cause) const
{
    const auto time = std::chrono::steady_clock::now() - m_Started;
    const Meter::Reading reading = m_Meter.Read();
    Outcome outcome = WithoutTransfer(status, cause);
    outcome.received = reading.received;
    outcome.sent = reading.sent;
    outcome.time = std::chrono::duration_cast<std::chrono::microseconds>(time);
    return outcome;
}

void Transfer::OnOutcome(const TransferOutcome& told)
{
    m_PartWatch.reset();
    const Outcome outcome = m_Finish(m_Describe(told));
    m_Setting.trace.Record(m_Index, TraceEvent::Kind::Complete, outcome.received,
                           ResultName(outcome));
    m_Setting.mailbox.Post({Event::Kind::TransferEnded, m_Index, outcome});
}

// What the session, the handler or the queue has told, whoever knows it best.
FailedTransfer Transfer::m_Describe(const TransferOutcome& told) const
{
    FailedTransfer result{told.GetCategory(), told.GetHttpStatus(), told.GetSentence(),
                          m_RedirectedTo, LastLibraryError()};
    const bool isVague =
        result.category == Category::HandlerFailed || result.category == Category::HttpStatus;
    if (m_SessionEnd && m_SessionEnd->GetCategory() != Category::Success && isVague) {
        result.category = m_SessionEnd->GetCategory();
        result.sentence = m_SessionEnd->GetSentence();
    }
    if (m_SessionEnd && m_SessionEnd->GetHttpStatus() != 0) {
        result.httpStatus = m_SessionEnd->GetHttpStatus();
    }
    if (m_HandlerStatus != 0) {
        result.httpStatus = m_HandlerStatus;
    }
    // Not every handler fails by itself on a status that tells of an error.
    const bool isError =
        m_Setting.arguments.request.failOnError && result.httpStatus >= FirstErrorStatus;
    const bool isNoFile = m_File && result.category == Category::HandlerFailed &&
                          result.httpStatus >= 300 && result.httpStatus != HttpNotModified;
    const bool isOfHandler =
        result.category == Category::Success || result.category == Category::HandlerFailed;
    if (isOfHandler && m_IsHeaderCut()) {
        result.category = Category::ConnectionLost;
        result.sentence = "The connection was closed inside the header of the response.";
    }
    if ((result.category == Category::Success && isError) ||
        (result.category == Category::HandlerFailed && isError) || isNoFile) {
        result.category = Category::HttpStatus;
    }
    return result;
}

Outcome Transfer::m_Finish(const FailedTransfer& told)
{
    Outcome outcome = m_OutcomeOf(told);
    outcome.category = told.category;
    if (told.httpStatus != 0) {
        outcome.httpStatus = told.httpStatus;
    }
    outcome.attempts = m_Attempts;
    try {
        if (outcome.status == AllSucceeded && m_Stream) {
            m_Stream->Commit();
        } else if (outcome.status == AllSucceeded && KeepsValidator() && !outcome.IsNotModified()) {
            KeepValidator(m_Header, TheSource().url, *m_File);
        }
        if (outcome.status == AllSucceeded && told.httpStatus == HttpOk && m_IsEndUnknown()) {
            outcome.note = "the server told no length, so nobody knows whether the file is whole";
        }
    } catch (const OutputError& error) {
        outcome.status = CannotWrite;
        outcome.category = Category::FileFailed;
        outcome.cause = error.what();
    }
    m_Stream.reset();
    return outcome;
}

Outcome Transfer::m_OutcomeOf(const FailedTransfer& told)
{
    if (!m_StreamFault.empty()) {
        return OutcomeNow(CannotWrite, m_StreamFault);
    }
    if (told.category == Category::Success) {
        return OutcomeNow(AllSucceeded, "");
    }
    if (told.category == Category::Cancelled) {
        return OutcomeNow(Interrupted, "interrupted");
    }
    Failure failure = FailureOf(TheSource(), m_TheJob().target, told);
    const bool mayContinue = m_File && told.category != Category::Busy;
    const std::string advice = mayContinue ? AdviceToContinue(*m_File) : "";
    return OutcomeNow(failure.status, failure.cause + (advice.empty() ? "" : "; " + advice));
}

std::string AdviceToContinue(const std::string& file)
{
    return IsPartKept(file) ? "--continue goes on with " + Quoted(file + ".part") : "";
}

}  // namespace VORTAN_TRANSFER
