#include "TransferQueue.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "AsyncTransferAgentManager.h"
#include "CallbackScope.h"
#include "EventData.h"
#include "Failure.h"
#include "FileSink.h"
#include "Log.h"
#include "QueueCore.h"
#include "QueuedRequest.h"
#include "SessionCore.h"
#include "TicketReceiver.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

using Method = ITransferHandler::Configuration::HttpMethod;
using RequestPtr = std::unique_ptr<TransferQueue::TransferConfiguration>;

// Collects what Fetch yields.
class FetchReceiver : public TicketReceiver
{
public:
    explicit FetchReceiver(std::shared_ptr<Response> response) : m_Response(std::move(response)) {}

    void OnEvent(const std::shared_ptr<ITransferObserver>&, const TransferEvent&) override {}
    void OnOutcome(const Outcome& outcome) override
    {
        try {
            m_Response->outcome = EventAccess::Make(outcome);
            m_Promise.set_value(std::move(*m_Response));
        } catch (const std::bad_alloc&) {
            m_Promise.set_exception(std::current_exception());
        }
    }

    std::future<Response> Future() { return m_Promise.get_future(); }

private:
    const std::shared_ptr<Response> m_Response;
    std::promise<Response> m_Promise;
};

class DownloadReceiver : public TicketReceiver
{
public:
    void OnEvent(const std::shared_ptr<ITransferObserver>&, const TransferEvent&) override {}
    void OnOutcome(const Outcome& outcome) override
    {
        try {
            m_Promise.set_value(EventAccess::Make(outcome));
        } catch (const std::bad_alloc&) {
            m_Promise.set_exception(std::current_exception());
        }
    }

    std::future<TransferOutcome> Future() { return m_Promise.get_future(); }

private:
    std::promise<TransferOutcome> m_Promise;
};

RequestPtr GetRequest(HttpSession& session, const std::string& url)
{
    auto request = std::make_unique<TransferQueue::TransferConfiguration>();
    request->url = url;
    QueuedRequest::Check(request.get());
    request->method = Method::EhttpGet;
    request->handlerFactory = session.MakeFactory();
    return request;
}

ITransferAgentManager::DataCallback Into(const std::shared_ptr<Response>& response,
                                         ITransferHandler::Bytes Response::*part)
{
    return [response, part](std::unique_ptr<ITransferHandler::Bytes> bytes, void*) {
        (*response).*part = std::move(*bytes);
    };
}

}  // namespace

void ITransferQueueObserver::OnEvent(Ticket, const TransferEvent&) {}
ITransferQueueObserver::~ITransferQueueObserver() = default;

struct TransferQueue::Data
{
    // Takes the request over. False if the queue is closed.
    bool Add(Ticket ticket, TransferConfiguration& request, Priority priority,
             std::uint32_t attempts, std::unique_ptr<TicketReceiver> receiver);
    // The same, for a future: it is fulfilled in any case.
    void AddForFuture(TransferConfiguration& request, std::unique_ptr<TicketReceiver> receiver);
    std::shared_ptr<QueuedWork> MakeWork(TransferConfiguration& request, std::uint32_t attempts,
                                         std::unique_ptr<TicketReceiver> receiver);

    std::shared_ptr<HttpSession> session;
    std::shared_ptr<ITransferQueueObserver> observer;
    std::shared_ptr<const Executor> executor;  // null without one
    std::shared_ptr<QueueCore> core;
};

std::shared_ptr<QueuedWork> TransferQueue::Data::MakeWork(TransferConfiguration& request,
                                                          std::uint32_t attempts,
                                                          std::unique_ptr<TicketReceiver> receiver)
{
    if (const auto* const own =
            dynamic_cast<const HttpHandlerFactory*>(request.handlerFactory.get())) {
        return std::make_shared<SessionRequest>(request, *own, core.get(), std::move(receiver));
    }
    return std::make_shared<HandlerRequest>(request, SessionAccess::Core(*session), attempts,
                                            core.get(), std::move(receiver));
}

bool TransferQueue::Data::Add(Ticket ticket, TransferConfiguration& request, Priority priority,
                              std::uint32_t attempts, std::unique_ptr<TicketReceiver> receiver)
{
    const auto delay = QueuedRequest::Delay(request, SessionAccess::Core(*session)->jitter);
    return core->Add(ticket, priority, delay, MakeWork(request, attempts, std::move(receiver)));
}

void TransferQueue::Data::AddForFuture(TransferConfiguration& request,
                                       std::unique_ptr<TicketReceiver> receiver)
{
    const std::shared_ptr<QueuedWork> work = MakeWork(request, 1, std::move(receiver));
    if (!core->Add(core->NewTicket(), Priority::Normal, QueuedWork::Milliseconds(0), work)) {
        work->End(Category::Cancelled);
    }
}

TransferQueue::TransferQueue(std::shared_ptr<HttpSession> session,
                             std::shared_ptr<ITransferQueueObserver> observer, Executor executor)
    : m_Data(std::make_unique<Data>())
{
    if (!session) {
        throw std::invalid_argument("A queue needs a session.");
    }
    m_Data->session = std::move(session);
    m_Data->observer = std::move(observer);
    if (executor) {
        m_Data->executor = std::make_shared<const Executor>(std::move(executor));
    }
    m_Data->core = QueueCore::Make(AsyncTransferAgentManager::Create());
}

TransferQueue::~TransferQueue()
{
    if (CallbackScope::IsInside(m_Data->core.get())) {
        constexpr char sentence[] =
            "A TransferQueue is destroyed inside one of its callbacks, which it would wait for.";
        KIT_LOG(Error, sentence);
        std::fprintf(stderr, "%s\n", sentence);
        std::abort();
    }
    m_Data->core->Close();
}

Ticket TransferQueue::Add(std::unique_ptr<TransferConfiguration> request, Priority priority,
                          std::uint32_t attempts)
{
    QueuedRequest::Check(request.get());
    if (priority > Priority::High) {
        throw std::invalid_argument("There is no such priority.");
    }
    if (!request->handlerFactory) {
        request->handlerFactory = m_Data->session->MakeFactory();
    }
    const Ticket ticket = m_Data->core->NewTicket();
    auto receiver = std::make_unique<ObserverReceiver>(m_Data->core, ticket, m_Data->observer,
                                                       m_Data->executor);
    return m_Data->Add(ticket, *request, priority, attempts, std::move(receiver)) ? ticket : 0;
}

bool TransferQueue::Cancel(Ticket ticket)
{
    return m_Data->core->Cancel(ticket);
}

void TransferQueue::CancelAll()
{
    m_Data->core->CancelAll();
}

std::future<Response> TransferQueue::Fetch(const std::string& url)
{
    const RequestPtr request = GetRequest(*m_Data->session, url);
    const auto response =
        std::make_shared<Response>(Response{EventAccess::Make(Outcome()), {}, {}});
    request->headerCallback = Into(response, &Response::header);
    request->dataCallback = Into(response, &Response::body);
    auto receiver = std::make_unique<FetchReceiver>(response);
    std::future<Response> future = receiver->Future();
    m_Data->AddForFuture(*request, std::move(receiver));
    return future;
}

std::future<TransferOutcome> TransferQueue::Download(const std::string& url,
                                                     const std::string& path,
                                                     const std::string& sha256)
{
    FileSink sink(path, sha256);
    const RequestPtr request = GetRequest(*m_Data->session, url);
    sink.AttachTo(*request);
    auto receiver = std::make_unique<DownloadReceiver>();
    std::future<TransferOutcome> future = receiver->Future();
    m_Data->AddForFuture(*request, std::move(receiver));
    return future;
}

}  // namespace KIT
}  // namespace VORTAN_MW
