#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "HandlerToFile.h"
#include "HttpHandler.h"
#include "ITransferAgentManager.h"
#include "PolicyData.h"
#include "QueueCore.h"
#include "RetryRule.h"
#include "StopSignal.h"
#include "TicketReceiver.h"
#include "Transfer.h"

namespace VORTAN_MW {
namespace KIT {

// A client's request as a queue performs it. Request and body stay here from one attempt to the
// next; the agent sees neither.
class QueuedRequest : public QueuedWork
{
public:
    using TransferConfiguration = ITransferAgentManager::TransferConfiguration;

    // Throws std::invalid_argument, with one sentence, if an agent or the queue refuses it.
    static void Check(const TransferConfiguration* request);
    // How long the request wants to wait before it is sent.
    static Milliseconds Delay(const TransferConfiguration& request, JitterSource& jitter);

    // core marks the calls of the client's code.
    QueuedRequest(TransferConfiguration& request, const void* core,
                  std::unique_ptr<TicketReceiver> receiver);

    void Describe(ITransferHandler::Configuration& configuration) const final;
    std::optional<Milliseconds> Perform() final;
    void End(Category reason) final;

protected:
    using Bytes = ITransferHandler::Bytes;
    using BytesPtr = std::unique_ptr<Bytes>;

    const ITransferHandler::TransferDetail& m_GetDetail() const { return m_Detail; }
    TicketReceiver& m_GetReceiver() const { return *m_Receiver; }
    void m_SetOutcome(Outcome outcome) { m_Outcome = std::move(outcome); }
    // Sets and logs the outcome of a request that fails after as many attempts.
    void m_Fail(Category category, std::uint32_t attempts);
    // Of a plain request that has succeeded.
    void m_DeliverBuffers();

private:
    virtual std::optional<Milliseconds> m_Attempt() = 0;
    // Sets and logs the outcome of a request that ends before its next attempt.
    virtual void m_EndEarly(Category reason) = 0;
    // Whether the request takes another chunk. isDelivered: to a callback of the client's.
    virtual bool m_TakesChunk(bool isDelivered) = 0;
    // Destroys what the request owns.
    virtual void m_Release() = 0;

    ITransferHandler::ChunkCallback m_ChunkCallback(
        const ITransferAgentManager::DataCallback& callback);

    const void* const m_Core;
    const std::unique_ptr<TicketReceiver> m_Receiver;
    ITransferAgentManager::DataCallback m_HeaderCallback;
    ITransferAgentManager::DataCallback m_DataCallback;
    void* const m_UserContext;
    Bytes m_Header;
    Bytes m_Body;
    ITransferHandler::TransferDetail m_Detail;
    Outcome m_Outcome;
};

// A request with a factory of a session's.
class SessionRequest : public QueuedRequest, private ITransferObserver
{
public:
    // The request's factory is factory.
    SessionRequest(TransferConfiguration& request, const HttpHandlerFactory& factory,
                   const void* core, std::unique_ptr<TicketReceiver> receiver);

    void Stop() override;

private:
    // The transfer from its first attempt on. Between attempts nobody runs it.
    struct Course
    {
        Course(HandlerContext& context, const ITransferHandler::TransferDetail& detail,
               const TransferOptionsData& options)
            : ofFactory(context.stop, listener),
              ofSession(context.core->stop, listener),
              transfer(*context.core, detail, options, context.files, listener)
        {}

        StopListener listener;
        const StopSource::Registration ofFactory;
        const StopSource::Registration ofSession;
        Transfer transfer;
    };

    std::optional<Milliseconds> m_Attempt() override;
    void m_EndEarly(Category reason) override;
    bool m_TakesChunk(bool) override { return true; }
    void m_Release() override;
    void OnEvent(const TransferEvent& event) override;

    std::unique_ptr<ITransferHandlerFactory> m_Factory;
    const std::shared_ptr<HandlerContext> m_Context;
    TransferOptionsData m_Options;
    std::unique_ptr<Course> m_Course;
};

// A request with any other factory.
class HandlerRequest : public QueuedRequest
{
public:
    HandlerRequest(TransferConfiguration& request, std::shared_ptr<SessionCore> session,
                   std::uint32_t attempts, const void* core,
                   std::unique_ptr<TicketReceiver> receiver);

    // Destroys the factory, from which its handlers may learn that they are to end.
    void Stop() override;

private:
    using SteadyClock = std::chrono::steady_clock;

    std::optional<Milliseconds> m_Attempt() override;
    void m_EndEarly(Category reason) override { m_Fail(reason, m_Event.attempt); }
    bool m_TakesChunk(bool isDelivered) override;
    void m_Release() override;

    std::unique_ptr<ITransferHandler> m_MakeHandler();
    Failure m_Judge(const ITransferHandler::Result& result);
    std::optional<Milliseconds> m_NextWait(const Failure& failure);
    void m_Report(TransferEvent::Kind kind);

    const std::shared_ptr<SessionCore> m_Session;
    Policy m_Policy;
    RetryRule m_Retry;
    std::shared_ptr<const FileFault> m_FileFault;  // null without a FileSink
    std::atomic<bool> m_IsStopped{false};
    std::mutex m_Mutex;
    std::shared_ptr<ITransferHandlerFactory> m_Factory;  // guarded by m_Mutex
    bool m_HasDelivered = false;                         // a chunk of a segmented request
    bool m_HasRefused = false;
    std::optional<SteadyClock::time_point> m_Deadline;
    EventRecord m_Event;
};

}  // namespace KIT
}  // namespace VORTAN_MW
