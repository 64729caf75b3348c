#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "BodySource.h"
#include "Continuation.h"
#include "EventData.h"
#include "Exchange.h"
#include "PartFile.h"
#include "RetryRule.h"
#include "SessionCore.h"
#include "Sink.h"
#include "TransferLoop.h"

namespace VORTAN_MW {
namespace KIT {

// Files in the place of the request's and the response's body.
struct TransferFiles
{
    std::string uploadPath;                    // empty: the request's own body
    std::shared_ptr<const FileTarget> target;  // null: the client's buffers and callbacks
};

// One transfer from its first attempt to its end. One thread at a time uses it.
class Transfer : private Exchange::Receiver, private TransferLoop::Watcher
{
public:
    // All of it outlives the transfer.
    Transfer(SessionCore& core, const ITransferHandler::TransferDetail& detail,
             const TransferOptionsData& options, const TransferFiles& files,
             StopListener& listener);

    // Performs the transfer to its end. Raises what the client's callbacks or its observer have
    // thrown, and nothing else.
    ITransferHandler::Result Run();

    // The same in steps, for a caller who does something else while the transfer waits. Performs
    // one attempt. Returns how long to wait before the next call; nothing if the transfer is over.
    std::optional<Milliseconds> Proceed();
    // Instead of the next Proceed: the transfer ends while it waits, and why.
    void StopWaiting(Category reason);
    // Once, at last. Raises what Run raises.
    ITransferHandler::Result Conclude();

private:
    // What happens to the body of the current response.
    enum class Treatment
    {
        Deliver,
        Drop,
    };

    std::optional<Milliseconds> m_RunAttempt();
    void m_EndAttempts();
    bool m_Prepare();
    Failure m_Attempt();
    Failure m_Request(const Hop& hop);
    PooledHandlePtr m_TakeHandle(const std::string& origin);
    Exchange::Request m_Describe(const Hop& hop) const;
    void m_NoteTimings();
    Failure m_Classify(TransferLoop::End end, CURLcode code, PooledHandle& handle, Category fault);
    Failure m_Finish();

    // The next attempt's wait, if there is a next attempt.
    std::optional<Milliseconds> m_NextWait(const Failure& failure, bool delivered);
    bool m_IsRepeatable() const;
    bool m_IsGet() const;
    bool m_MayContinue() const;
    bool m_IsContinuable() const;
    bool m_IsBeyondTheEnd(std::size_t length) const;
    bool m_IsShort() const;
    bool m_HasDelivered() const { return m_Sink.WantsBody() && m_Sink.Delivered() > 0; }
    Milliseconds m_TimeLeft() const;

    bool OnHeader(const HeaderCollector& header) override;
    bool OnBody(const char* data, std::size_t length) override;
    void OnConnected() override;
    std::optional<Milliseconds> OnMoved() override;
    bool m_OnRedirect(const HeaderCollector& header);
    bool m_OnFailureStatus(const HeaderCollector& header);
    bool m_OnContinuation(const HeaderCollector& header);
    bool m_OnResponse(const HeaderCollector& header);
    bool m_OnRest(const HeaderCollector& header);
    bool m_Fail(Category category, const char* reason = "");
    bool m_DeliverPendingHeader();

    bool m_OpenFile();
    bool m_BeginFile(const HeaderCollector& header, std::optional<std::uint64_t> length);
    bool m_OnOtherVersion(const HeaderCollector& header);
    void m_StartOver();
    void m_CloseFile();

    void m_ReportHeader(const HeaderCollector& header);
    void m_Report(TransferEvent::Kind kind);
    void m_End(Category category, const std::string& detail = std::string());

    SessionCore& m_Core;
    const ITransferHandler::TransferDetail& m_Detail;
    const TransferOptionsData& m_Options;
    const TransferFiles& m_Files;
    StopListener& m_Listener;
    const std::chrono::steady_clock::time_point m_Deadline;
    std::optional<PartFile> m_File;
    Sink m_Sink;
    RetryRule m_Retry;
    Continuation m_Continuation;
    std::string m_Resource;  // that m_Continuation's validator belongs to
    std::unique_ptr<BodySource> m_Body;
    Hop m_First;

    // Of the current attempt.
    std::uint64_t m_HeaderBytes = 0;
    bool m_HasSent = false;
    bool m_HasStartedOver = false;  // the file begins anew
    bool m_SendsAgain = false;      // at once, without a range

    // Of the current request.
    const Hop* m_Hop = nullptr;
    CURL* m_Easy = nullptr;  // while the request is performed
    std::optional<Hop> m_Next;
    std::optional<Failure> m_Failure;  // that the response's header has decided
    std::optional<Milliseconds> m_RetryAfter;
    Treatment m_Treatment = Treatment::Deliver;
    bool m_IsHeaderComplete = false;
    bool m_IsConnectionReported = false;
    bool m_IsContinuation = false;  // the response belongs to the one that the client has
    std::uint64_t m_Skip = 0;       // bytes that the client has already
    std::uint64_t m_Dropped = 0;
    std::string m_Trailer;

    // Of the whole transfer.
    bool m_IsPrepared = false;
    std::string m_PendingHeader;  // delivered with the first byte of the body, or at the end
    long m_Status = 0;
    const char* m_Reason = "";           // detail of the failure, if any
    bool m_IsResumed = false;            // the file goes on where an earlier run has left it
    bool m_IsUnmodified = false;         // the server says that the file needs no change
    bool m_HasResponse = false;          // the client has the header that m_Status belongs to
    bool m_IsWaitDecided = false;        // by the header of the response
    std::optional<Milliseconds> m_Wait;  // before the next attempt
    EventRecord m_Event;
    std::chrono::steady_clock::time_point m_ReportedAt;
};

}  // namespace KIT
}  // namespace VORTAN_MW
