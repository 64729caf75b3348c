#include "QueuedRequest.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "CallbackScope.h"
#include "Failure.h"
#include "FailureLog.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

using HttpMethod = ITransferHandler::Configuration::HttpMethod;

const char* ReasonToRefuse(const QueuedRequest::TransferConfiguration* request)
{
    if (!request) {
        return "There is no request.";
    }
    if (request->url.empty()) {
        return "The request has no URL.";
    }
    if (request->completeCallback) {
        return "The request has a completeCallback, but a queue tells its observer.";
    }
    if (request->method == HttpMethod::EhttpPost && request->requestBody.empty()) {
        return "The request is a POST without a body.";
    }
    if (request->method == HttpMethod::EhttpGet && !request->requestBody.empty()) {
        return "The request is a GET with a body.";
    }
    if (request->halvordConfig && request->halvordConfig->resource.empty()) {
        return "The request's halvordConfig has no resource.";
    }
    if (request->randomDelay && request->randomDelay->min > request->randomDelay->max) {
        return "The request's randomDelay has a minimum above its maximum.";
    }
    return nullptr;
}

// The agent writes URLs to its log.
std::string WithoutCredentials(const std::string& url)
{
    const std::size_t scheme = url.find("://");
    const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
    const std::size_t at = url.substr(0, url.find_first_of("/?#", begin)).rfind('@');
    return scheme == std::string::npos || at == std::string::npos || at < begin
               ? url
               : url.substr(0, begin) + url.substr(at + 1);
}

// Passes events of a request without options on.
class Relay : public ITransferObserver
{
public:
    explicit Relay(TicketReceiver& receiver) : m_Receiver(receiver) {}

    void OnEvent(const TransferEvent& event) override { m_Receiver.OnEvent(nullptr, event); }

private:
    TicketReceiver& m_Receiver;
};

}  // namespace

void QueuedRequest::Check(const TransferConfiguration* request)
{
    if (const char* const reason = ReasonToRefuse(request)) {
        throw std::invalid_argument(reason);
    }
}

QueuedWork::Milliseconds QueuedRequest::Delay(const TransferConfiguration& request,
                                              JitterSource& jitter)
{
    if (request.randomDelay) {
        const std::chrono::seconds least(request.randomDelay->min);
        const std::chrono::seconds most(request.randomDelay->max);
        return least + jitter.Draw(most - least);
    }
    constexpr std::int64_t longest =
        std::int64_t{10} * 365 * 24 * 3600 * 1000;  // the clock's range
    return Milliseconds(std::min(request.fixedDelay.value_or(0), longest));
}

QueuedRequest::QueuedRequest(TransferConfiguration& request, const void* core,
                             std::unique_ptr<TicketReceiver> receiver)
    : m_Core(core),
      m_Receiver(std::move(receiver)),
      m_HeaderCallback(std::move(request.headerCallback)),
      m_DataCallback(std::move(request.dataCallback)),
      m_UserContext(request.userContext)
{
    const bool isSegmented = request.segmented;
    static_cast<ITransferHandler::Configuration&>(m_Detail) = std::move(request);
    m_Detail.fixedDelay = boost::none;
    m_Detail.randomDelay = boost::none;
    if (isSegmented || (!m_HeaderCallback && !m_DataCallback)) {
        m_Detail.headerCallback = m_ChunkCallback(m_HeaderCallback);
        m_Detail.dataCallback = m_ChunkCallback(m_DataCallback);
    } else {
        m_Detail.headerBuffer = m_HeaderCallback ? &m_Header : nullptr;
        m_Detail.dataBuffer = m_DataCallback ? &m_Body : nullptr;
    }
}

ITransferHandler::ChunkCallback QueuedRequest::m_ChunkCallback(
    const ITransferAgentManager::DataCallback& callback)
{
    return [this, &callback](BytesPtr chunk, void*) {
        if (!m_TakesChunk(static_cast<bool>(callback))) {
            return false;
        }
        if (callback) {
            callback(std::move(chunk), m_UserContext);
        }
        return true;
    };
}

void QueuedRequest::Describe(ITransferHandler::Configuration& configuration) const
{
    configuration.url = WithoutCredentials(m_Detail.url);
    configuration.method = m_Detail.method;
    configuration.requestBody = m_Detail.requestBody.empty() ? "" : "-";
    configuration.halvordConfig = m_Detail.halvordConfig;
}

std::optional<QueuedWork::Milliseconds> QueuedRequest::Perform()
{
    const CallbackScope scope(m_Core);
    m_Detail.bodyOffset = 0;
    return m_Attempt();
}

void QueuedRequest::End(Category reason)
{
    const CallbackScope scope(m_Core);
    if (reason != Category::Success) {
        m_EndEarly(reason);
    }
    m_Release();
    m_HeaderCallback = nullptr;
    m_DataCallback = nullptr;
    m_Detail = ITransferHandler::TransferDetail();
    m_Header = Bytes();
    m_Body = Bytes();
    m_Receiver->OnOutcome(m_Outcome);
}

void QueuedRequest::m_Fail(Category category, std::uint32_t attempts)
{
    m_Outcome = Outcome();
    m_Outcome.category = category;
    try {
        m_Outcome.sentence = SentenceOf(category, "", 0);
    } catch (const std::bad_alloc&) {
        // The category tells enough.
    }
    LogFailure(m_Outcome, attempts);
}

void QueuedRequest::m_DeliverBuffers()
{
    if (m_Detail.headerBuffer) {
        m_HeaderCallback(std::make_unique<Bytes>(std::move(m_Header)), m_UserContext);
    }
    if (m_Detail.dataBuffer) {
        m_DataCallback(std::make_unique<Bytes>(std::move(m_Body)), m_UserContext);
    }
}

SessionRequest::SessionRequest(TransferConfiguration& request, const HttpHandlerFactory& factory,
                               const void* core, std::unique_ptr<TicketReceiver> receiver)
    : QueuedRequest(request, core, std::move(receiver)),
      m_Factory(std::move(request.handlerFactory)),
      m_Context(factory.Context()),
      m_Options(m_Context->options)
{
    // Not owned: the transfer ends before the request.
    m_Options.observer = std::shared_ptr<ITransferObserver>(std::shared_ptr<void>(), this);
}

void SessionRequest::Stop()
{
    m_Context->stop.Stop();
}

std::optional<QueuedWork::Milliseconds> SessionRequest::m_Attempt()
{
    try {
        if (!m_Course) {
            m_Course = std::make_unique<Course>(*m_Context, m_GetDetail(), m_Options);
        }
    } catch (const std::bad_alloc&) {
        m_Fail(Category::OutOfMemory, 0);
        return std::nullopt;
    }
    if (const auto wait = m_Course->transfer.Proceed()) {
        return wait;
    }
    const ITransferHandler::Result result = m_Course->transfer.Conclude();
    m_Course.reset();
    if (result.success) {
        m_DeliverBuffers();
    }
    return std::nullopt;
}

void SessionRequest::m_EndEarly(Category reason)
{
    if (m_Course) {
        m_Course->transfer.StopWaiting(reason);
        m_Course->transfer.Conclude();
        m_Course.reset();
    } else {
        m_Fail(reason, 0);
    }
}

void SessionRequest::m_Release()
{
    m_Factory.reset();
}

void SessionRequest::OnEvent(const TransferEvent& event)
{
    if (event.GetKind() == TransferEvent::Kind::End) {
        m_SetOutcome(EventAccess::Copy(event).outcome);
    }
    m_GetReceiver().OnEvent(m_Context->options.observer, event);
}

HandlerRequest::HandlerRequest(TransferConfiguration& request, std::shared_ptr<SessionCore> session,
                               std::uint32_t attempts, const void* core,
                               std::unique_ptr<TicketReceiver> receiver)
    : QueuedRequest(request, core, std::move(receiver)),
      m_Session(std::move(session)),
      m_Policy(m_Session->policy),
      m_Retry(m_Policy, m_Session->budget, m_Session->jitter),
      m_Factory(std::move(request.handlerFactory))
{
    m_Policy.attempts = attempts;
    if (const auto* const toFile = dynamic_cast<const FactoryToFile*>(m_Factory.get())) {
        m_FileFault = toFile->LastFault();
    }
}

void HandlerRequest::Stop()
{
    std::shared_ptr<ITransferHandlerFactory> factory;  // destroyed without the mutex
    m_IsStopped = true;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    factory.swap(m_Factory);
}

bool HandlerRequest::m_TakesChunk(bool isDelivered)
{
    m_HasRefused = m_HasRefused || m_IsStopped;
    m_HasDelivered = m_HasDelivered || isDelivered;
    return !m_HasRefused;
}

void HandlerRequest::m_Release()
{
    Stop();
}

// The copy keeps the factory for the call; if it is stopped meanwhile, the factory is destroyed
// here, after it.
std::unique_ptr<ITransferHandler> HandlerRequest::m_MakeHandler()
{
    std::shared_ptr<ITransferHandlerFactory> factory;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        factory = m_Factory;
    }
    return factory ? factory->Create() : nullptr;
}

std::optional<QueuedWork::Milliseconds> HandlerRequest::m_Attempt()
{
    if (!m_Deadline) {
        m_Deadline = SteadyClock::now() + m_Policy.altogether;
    }
    ITransferHandler::Result result;
    const std::unique_ptr<ITransferHandler> handler = m_MakeHandler();
    if (handler && !m_IsStopped) {
        ++m_Event.attempt;
        m_Report(TransferEvent::Kind::Attempt);
        result = handler->DoTransfer(m_GetDetail());
    }
    const Failure failure = m_Judge(result);
    m_SetOutcome(m_Event.outcome);
    if (failure.category == Category::Success) {
        m_Session->budget.GiveBack();
        m_DeliverBuffers();
        return std::nullopt;
    }
    const std::optional<Milliseconds> wait = m_NextWait(failure);
    if (wait) {
        m_Event.delay = *wait;
        m_Report(TransferEvent::Kind::Retry);
        LogRetry(m_Event);
    } else if (!m_FileFault || m_FileFault->category != failure.category) {
        LogFailure(m_Event.outcome, m_Event.attempt);  // else the file's handler has logged it
    }
    return wait;
}

// What the result means, and the outcome if it is the last.
Failure HandlerRequest::m_Judge(const ITransferHandler::Result& result)
{
    const long status = result.httpCode ? *result.httpCode : 0;
    Failure failure{Category::HandlerFailed, true};
    if (result.success && !m_HasRefused) {
        failure = {Category::Success, false};
    } else if (m_IsStopped) {
        failure = {Category::Cancelled, false};
    } else if (m_FileFault && m_FileFault->category != Category::Success) {
        failure = {m_FileFault->category, false};
    } else if (status >= 400) {
        failure = {Category::HttpStatus, MayPass(status)};
    }
    m_Event.httpStatus = status;
    m_Event.outcome.category = failure.category;
    m_Event.outcome.httpStatus = status;
    try {
        m_Event.outcome.sentence = SentenceOf(failure.category, "", status,
                                              m_FileFault ? m_FileFault->detail : std::string());
    } catch (const std::bad_alloc&) {
        m_Event.outcome.sentence.clear();
    }
    return failure;
}

std::optional<QueuedWork::Milliseconds> HandlerRequest::m_NextWait(const Failure& failure)
{
    RetryRule::FailedAttempt attempt;
    attempt.mayPass = failure.mayPass;
    attempt.isRepeatable = !m_HasDelivered;
    const auto now = SteadyClock::now();
    return m_Retry.Next(attempt, now, std::chrono::duration_cast<Milliseconds>(*m_Deadline - now));
}

void HandlerRequest::m_Report(TransferEvent::Kind kind)
{
    m_Event.kind = kind;
    Relay relay(m_GetReceiver());
    EventAccess::Report(relay, m_Event);
}

}  // namespace KIT
}  // namespace VORTAN_MW
