#pragma once

#include <ITransferAgentManager.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>

#include "base/Output.h"
#include "options/Arguments.h"
#include "trace/Trace.h"
#include "transfer/Mailbox.h"
#include "transfer/Redirects.h"
#include "transfer/ResponseHeader.h"

namespace VORTAN_TRANSFER {

// One transfer from its request to its end. The callbacks of the request keep it alive; they run on
// the library's worker thread.
class Transfer
{
public:
    struct Delivery
    {
        bool segmented;
        bool writeHeader;
    };

    // Posts what becomes of it as the given job, and records it in the trace. That and the manager
    // must outlive the callbacks.
    Transfer(std::size_t job, const Source& source, Output output, Delivery delivery,
             VORTAN_MW::ITransferAgentManager& manager, std::shared_ptr<Mailbox> mailbox,
             Trace& trace);

    // Requests the transfer. Returns false, with the reason in the library's log, if it is refused:
    // then nothing is posted.
    static bool Start(const std::shared_ptr<Transfer>& transfer,
                      const VORTAN_MW::ITransferHandler::Configuration& request);

    // After Start(), until the manager is destroyed. What arrives later is dropped.
    void Cancel();

    struct Progress
    {
        std::uint64_t received = 0;
        std::optional<std::uint64_t> total;
    };
    // Any thread may ask.
    Progress CurrentProgress() const;

    // After Start(): what is to be told of it if it ends like this at this moment.
    Outcome OutcomeNow(ExitStatus status, const std::string& cause) const;

private:
    using Bytes = VORTAN_MW::ITransferHandler::Bytes;

    static std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> s_MakeFactory(
        const std::shared_ptr<Transfer>& transfer,
        const VORTAN_MW::ITransferHandler::Configuration& request);
    void m_OnHeader(const Bytes* bytes);
    void m_OnBody(const Bytes* bytes);
    void m_OnComplete(const VORTAN_MW::ITransferHandler::Result& result);
    void m_TraceBody(std::uint64_t size);
    void m_Write(const Bytes& bytes);
    void m_End(ExitStatus status, const std::string& cause, std::optional<long> httpStatus);

    const std::size_t m_Job;
    const Source m_Source;
    const Delivery m_Delivery;
    VORTAN_MW::ITransferAgentManager& m_Manager;
    const std::shared_ptr<Mailbox> m_Mailbox;

    Trace& m_Trace;
    std::chrono::steady_clock::time_point m_Started;

    // A callback may run before the request has returned the handle.
    std::promise<std::uint64_t> m_HandlePromise;
    const std::shared_future<std::uint64_t> m_Handle = m_HandlePromise.get_future().share();

    // The worker's alone.
    Redirects m_Redirects;

    // The worker's alone. The output is closed when the outcome is known.
    std::optional<Output> m_Output;
    bool m_FailOnError = true;
    ResponseHeader m_Header;
    bool m_HeaderBegan = false;
    bool m_BodyBegan = false;

    mutable std::mutex m_Mutex;
    Progress m_Progress;  // guarded by m_Mutex
};

}  // namespace VORTAN_TRANSFER
