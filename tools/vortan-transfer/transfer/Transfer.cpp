#include "transfer/Transfer.h"

#include <string_view>
#include <utility>

#include "base/LibraryLog.h"
#include "transfer/FailureCause.h"
#include "transfer/WatchedFactory.h"

namespace VORTAN_TRANSFER {

using Manager = VORTAN_MW::ITransferAgentManager;

namespace {

// Handlers tell 0 where the server never answered.
std::optional<long> StatusIn(const VORTAN_MW::ITransferHandler::Result& result)
{
    return result.httpCode && *result.httpCode > 0 ? std::optional(*result.httpCode) : std::nullopt;
}

std::string CauseOfCutHeader(std::optional<long> status)
{
    const std::string cause = "the connection was closed inside the header of the response";
    return status ? cause + " (HTTP status " + std::to_string(*status) + ")" : cause;
}

}  // namespace

Transfer::Transfer(std::size_t job, const Source& source, Output output, Delivery delivery,
                   Manager& manager, std::shared_ptr<Mailbox> mailbox, Trace& trace)
    : m_Job(job),
      m_Source(source),
      m_Delivery(delivery),
      m_Manager(manager),
      m_Mailbox(std::move(mailbox)),
      m_Trace(trace),
      m_Redirects(source.url),
      m_Output(std::move(output))
{}

bool Transfer::Start(const std::shared_ptr<Transfer>& transfer,
                     const VORTAN_MW::ITransferHandler::Configuration& request)
{
    auto configuration = std::make_unique<Manager::TransferConfiguration>();
    static_cast<VORTAN_MW::ITransferHandler::Configuration&>(*configuration) = request;
    configuration->url = transfer->m_Source.url;
    transfer->m_FailOnError = request.failOnError;
    configuration->handlerFactory = s_MakeFactory(transfer, request);
    configuration->segmented = transfer->m_Delivery.segmented;
    if (transfer->m_Source.handler->speaksHttp) {
        configuration->headerCallback = [transfer](std::unique_ptr<Bytes> bytes, void*) {
            transfer->m_OnHeader(bytes.get());
        };
    }
    configuration->dataCallback = [transfer](std::unique_ptr<Bytes> bytes, void*) {
        transfer->m_OnBody(bytes.get());
    };
    configuration->completeCallback = [transfer](VORTAN_MW::ITransferHandler::Result result,
                                                 void*) { transfer->m_OnComplete(result); };
    transfer->m_Started = std::chrono::steady_clock::now();
    transfer->m_Trace.Record(transfer->m_Job, TraceEvent::Kind::Started);
    const std::uint64_t handle = transfer->m_Manager.RequestTransfer(std::move(configuration));
    transfer->m_HandlePromise.set_value(handle);
    return handle != Manager::InvalidHandle;
}

std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> Transfer::s_MakeFactory(
    const std::shared_ptr<Transfer>& transfer,
    const VORTAN_MW::ITransferHandler::Configuration& request)
{
    const bool hasDelay = request.randomDelay || request.fixedDelay;
    const auto onBegin = [transfer, hasDelay] {
        Mailbox::PostAtThreadEnd(transfer->m_Mailbox);
        if (hasDelay) {
            transfer->m_Trace.Record(transfer->m_Job, TraceEvent::Kind::Slept);
        }
    };
    const auto onHeader = [transfer](const Bytes& lines) {
        transfer->m_Redirects.Add({reinterpret_cast<const char*>(lines.data()), lines.size()});
    };
    return std::make_unique<WatchedFactory>(transfer->m_Source.handler->makeFactory(),
                                            WatchedFactory::Watch{onBegin, onHeader});
}

void Transfer::Cancel()
{
    m_Manager.CancelTransfer(m_Handle.get());
}

Transfer::Progress Transfer::CurrentProgress() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Progress;
}

Outcome Transfer::OutcomeNow(ExitStatus status, const std::string& cause) const
{
    const auto time = std::chrono::steady_clock::now() - m_Started;
    Outcome outcome = WithoutTransfer(status, cause);
    outcome.received = CurrentProgress().received;
    outcome.time = std::chrono::duration_cast<std::chrono::microseconds>(time);
    return outcome;
}

// Null stands for a chunk of the other kind.
void Transfer::m_OnHeader(const Bytes* bytes)
{
    // What comes after the body has begun are trailers, which would pass for a part of it.
    if (!bytes || CurrentProgress().received > 0) {
        return;
    }
    if (!std::exchange(m_HeaderBegan, true)) {
        m_Trace.Record(m_Job, TraceEvent::Kind::FirstHeader);
    }
    const std::string_view lines(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    m_Header.Add(lines);
    if (m_Delivery.segmented) {
        m_Redirects.Add(lines);
    }
    if (m_Delivery.writeHeader) {
        m_Write(*bytes);
    }
}

void Transfer::m_OnBody(const Bytes* bytes)
{
    if (!bytes) {
        return;
    }
    m_TraceBody(bytes->size());
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Progress.received += bytes->size();
        m_Progress.total = m_Header.BodyLength();
    }
    m_Write(*bytes);
}

void Transfer::m_TraceBody(std::uint64_t size)
{
    if (size == 0 || !m_Output) {
        return;
    }
    if (!std::exchange(m_BodyBegan, true)) {
        m_Trace.Record(m_Job, TraceEvent::Kind::FirstBody);
    }
    m_Trace.Record(m_Job, TraceEvent::Kind::Chunk, size);
}

void Transfer::m_OnComplete(const VORTAN_MW::ITransferHandler::Result& result)
{
    const std::optional<long> status = StatusIn(result);
    // Not every handler fails by itself on an HTTP status that tells of an error.
    const bool isError = m_FailOnError && status && IsErrorStatus(*status);
    if (!result.success || isError) {
        const Failure failure = FailureOf(m_Source, result, LastLibraryError());
        m_End(failure.status, failure.cause, status);
        return;
    }
    if (m_HeaderBegan && !m_Header.IsWhole()) {
        m_End(TransferFailed, CauseOfCutHeader(status), status);
        return;
    }
    try {
        if (status == HttpNotModified) {
            m_Output->Leave();
        } else {
            m_Output->Commit();
        }
        m_End(AllSucceeded, "", status);
    } catch (const OutputError& error) {
        m_End(CannotWrite, error.what(), status);
    }
}

void Transfer::m_Write(const Bytes& bytes)
{
    if (!m_Output) {
        return;  // it failed before, and the transfer is about to stop
    }
    try {
        m_Output->Write(bytes);
    } catch (const OutputError& error) {
        m_End(CannotWrite, error.what(), std::nullopt);
        Cancel();
    }
}

void Transfer::m_End(ExitStatus status, const std::string& cause, std::optional<long> httpStatus)
{
    m_Output.reset();
    Outcome outcome =
        OutcomeNow(status, status == TransferFailed ? m_Redirects.Preface() + cause : cause);
    outcome.httpStatus = httpStatus;
    m_Trace.Record(m_Job, TraceEvent::Kind::Complete, outcome.received, ResultName(outcome));
    m_Mailbox->Post({Event::Kind::TransferEnded, m_Job, outcome});
}

}  // namespace VORTAN_TRANSFER
