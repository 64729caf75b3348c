#pragma once

#include <TransferQueue.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "base/Output.h"
#include "base/PartWatch.h"
#include "options/Arguments.h"
#include "trace/Trace.h"
#include "transfer/FailureCause.h"
#include "transfer/Mailbox.h"
#include "transfer/Meter.h"
#include "transfer/ResponseHeader.h"

namespace VORTAN_TRANSFER {

// What the transfers of a command line share. All of it outlives them.
struct Setting
{
    const Arguments& arguments;
    VORTAN_MW::KIT::HttpSession& session;
    VORTAN_MW::KIT::TransferQueue& queue;
    Mailbox& mailbox;
    Trace& trace;
    // All is cancelled: what a handler does nevertheless is for nothing.
    const std::atomic<bool>& isStopping;
};

// One transfer from its request to its end: what happens to it comes here, on the worker thread,
// and goes to the target, the trace, the meter and, at last, the mailbox.
class Transfer : public VORTAN_MW::KIT::ITransferObserver
{
public:
    using Bytes = VORTAN_MW::ITransferHandler::Bytes;
    using Ticket = VORTAN_MW::KIT::Ticket;

    // Opens the target if it is a stream: blocks when it is a named pipe that nobody reads yet.
    // Throws OutputError.
    Transfer(std::size_t job, const Setting& setting);

    // Around the call of the queue's that takes the request.
    void OnRequest();
    void OnAccepted(Ticket ticket);

    // What the request's handlers and callbacks tell. A transfer of the session is an observer's,
    // too.
    void OnBegin();
    void OnHeader(const Bytes& lines);
    void OnBody(const Bytes& bytes);
    // Returns whether what the handler takes for a success is one.
    bool OnHandlerEnd(long httpStatus);
    void OnEvent(const VORTAN_MW::KIT::TransferEvent& event) override;
    // The body goes elsewhere; it is only counted.
    void OnChunk(std::uint64_t size);
    // The last call.
    void OnOutcome(const VORTAN_MW::KIT::TransferOutcome& told);

    const Setting& Shared() const { return m_Setting; }
    const Source& TheSource() const { return m_TheJob().source; }
    const std::string& Sha256() const { return m_TheJob().sha256; }
    // The regular file that the body is to become; nothing if it goes to a stream.
    const std::optional<std::string>& File() const { return m_File; }
    bool WritesHeader() const;
    // Whether the session performs the transfer as it is: then the kit writes and resumes its file.
    bool IsSessionsOwn() const;
    // Whether a later run asks for what has changed only.
    bool KeepsValidator() const;
    Meter& TheMeter() { return m_Meter; }

    // What is to be told of it if it ends like this at this moment.
    Outcome OutcomeNow(ExitStatus status, const std::string& cause) const;

private:
    const Job& m_TheJob() const { return m_Setting.arguments.jobs[m_Index]; }
    void m_OnAttempt(const VORTAN_MW::KIT::TransferEvent& event);
    void m_TakeProgress(const VORTAN_MW::KIT::TransferEvent& event);
    void m_TraceFirstHeader();
    void m_Write(const Bytes& bytes);
    bool m_IsHeaderCut() const;
    bool m_IsEndUnknown() const;
    FailedTransfer m_Describe(const VORTAN_MW::KIT::TransferOutcome& told) const;
    Outcome m_OutcomeOf(const FailedTransfer& told);
    Outcome m_Finish(const FailedTransfer& told);

    const std::size_t m_Index;
    const Setting& m_Setting;
    const std::optional<std::string> m_File;
    Meter m_Meter;
    std::chrono::steady_clock::time_point m_Started;

    // A callback may run before the queue has returned the ticket.
    std::promise<Ticket> m_TicketPromise;

    // The worker's alone.
    std::optional<Output> m_Stream;
    std::string m_StreamFault;  // why it cannot be written to; empty: it can
    std::optional<PartWatch> m_PartWatch;
    ResponseHeader m_Header;
    bool m_HasHeaderBegun = false;
    bool m_HasBodyBegun = false;
    bool m_HasAttempt = false;
    std::uint64_t m_Delivered = 0;  // as the session's last event has told
    std::string m_RedirectedTo;
    std::uint32_t m_Attempts = 0;
    long m_HandlerStatus = 0;
    std::optional<VORTAN_MW::KIT::TransferOutcome> m_SessionEnd;
};

// What a later run can do after a failure: "--continue goes on with 'FILE.part'". Empty if nothing.
std::string AdviceToContinue(const std::string& file);

}  // namespace VORTAN_TRANSFER
