#include "AsyncTransferAgentManager.h"

#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "AsyncTransferAgentManagerState.h"
#include "TransferByMove.h"
#include "Utils.h"

namespace VORTAN_MW {

namespace {

constexpr std::size_t MaxParallelTransfers = 4;

boost::optional<ITransferHandler::Bytes&> BufferIfWanted(
    const std::unique_ptr<ITransferHandler::Bytes>& buffer)
{
    return buffer ? boost::optional<ITransferHandler::Bytes&>(*buffer) : boost::none;
}

// A copy to transfer with, which stays whole when the job is removed meanwhile. Only the request
// body is moved: a job has one transfer, nobody else reads it, and copying it may cost more than
// sending it.
ITransferHandler::Configuration ConfigurationFor(ITransferHandler::Configuration& job)
{
    std::string body = std::move(job.requestBody);
    ITransferHandler::Configuration configuration(job);
    configuration.requestBody = std::move(body);
    return configuration;
}

// Copies of a job's data callbacks, which stay valid if the job is removed meanwhile. The last copy
// of a callback may run the client's code when it is destroyed: not while the mutex is held.
class DataNotification
{
public:
    explicit DataNotification(const ITransferAgentManager::TransferConfiguration& job)
        : m_HeaderCallback(job.headerCallback),
          m_DataCallback(job.dataCallback),
          m_UserContext(job.userContext)
    {}

    void Deliver(std::unique_ptr<ITransferHandler::Bytes> header,
                 std::unique_ptr<ITransferHandler::Bytes> data) const
    {
        if (m_HeaderCallback) {
            m_HeaderCallback(std::move(header), m_UserContext);
        }
        if (m_DataCallback) {
            m_DataCallback(std::move(data), m_UserContext);
        }
    }

private:
    ITransferAgentManager::DataCallback m_HeaderCallback;
    ITransferAgentManager::DataCallback m_DataCallback;
    void* m_UserContext;
};

// Log lines of m_PerformDataTransfer keep its name in the functions that do its work.
constexpr char PerformDataTransfer[] = "m_PerformDataTransfer";

// Fetches what there is a buffer for. After a failure there is no buffer.
ITransferHandler::Result Fetch(const ITransferHandler& handler,
                               ITransferHandler::Configuration&& configuration,
                               std::uint64_t handle,
                               std::unique_ptr<ITransferHandler::Bytes>& header,
                               std::unique_ptr<ITransferHandler::Bytes>& data)
{
    ITransferHandler::Result result;
    if (header || data) {
        result = TransferByMove::Run(handler, std::move(configuration), BufferIfWanted(header),
                                     BufferIfWanted(data));
    }
    if (!result.success) {
        if (!header || !data) {  // a failure of both has no line, on purpose
            LOG_INFO_AS(PerformDataTransfer, "Failed download header/data handle: " << handle);
        }
        header.reset();
        data.reset();
    }
    if (header) {
        LOG_INFO_AS(PerformDataTransfer, "Successfully download header size: " << header->size());
    }
    if (data) {
        LOG_INFO_AS(PerformDataTransfer, "Successfully download data size: " << data->size());
    }
    return result;
}

// Never inlined: the generator takes 10 KiB of stack. A worker without a random delay stays within
// the pages that the C library keeps for the next thread; to give others back interrupts every
// processor that the process runs on.
[[gnu::noinline]] std::uint32_t DrawSeconds(
    const ITransferHandler::Configuration::RandomDelay& bounds)
{
    return UTILS::RandomNumberGenerator(bounds.min, bounds.max)();
}

}  // namespace

std::unique_ptr<ITransferAgentManager> AsyncTransferAgentManager::Create()
{
    return std::unique_ptr<ITransferAgentManager>(new AsyncTransferAgentManager);
}

AsyncTransferAgentManager::AsyncTransferAgentManager() : m_State(std::make_unique<State>()) {}

AsyncTransferAgentManager::~AsyncTransferAgentManager()
{
    LOG_DEBUG(" ");
    {
        const State::MutexScope scope(*m_State);
        LOG_DEBUG("number of threads: " << m_State->threads.size());
        m_State->terminating = true;
    }
    for (const auto& [handle, sleeper] : m_State->SleepersAtShutdown()) {
        LOG_DEBUG("Waking up sleeping thread with handle: " << handle);
        sleeper->notify_one();
    }
    for (auto& [id, worker] : m_State->ThreadsAtShutdown()) {
        if (worker.Thread().joinable()) {
            LOG_INFO("joining thread: " << id);
            worker.Thread().join();
            LOG_INFO("thread terminated: " << id);
        } else {
            LOG_INFO("thread not joinable: " << id);
        }
    }
}

std::uint64_t AsyncTransferAgentManager::RequestTransfer(
    std::unique_ptr<TransferConfiguration> configuration)
{
    // What this call does not keep belongs to the client and may run the client's code when it is
    // destroyed: that happens without the mutex, and before the handle is returned.
    const std::unique_ptr<TransferConfiguration> request = std::move(configuration);
    State::MutexScope scope(*m_State);

    if (!m_ValidateTransferConfig(request)) {
        return InvalidHandle;
    }
    LOG_DEBUG("Url: " << request->url);
    if (m_State->terminating) {
        LOG_WARN("Transfer agent terminating, cancelling transfer");
        return InvalidHandle;
    }
    if (m_State->threads.size() >= MaxParallelTransfers) {
        LOG_ERROR("Maximum number of parallel transfers reached: " << m_State->threads.size());
        return InvalidHandle;
    }

    State::ThreadTable::node_type entry = State::NewThreadEntry();
    const std::size_t jobsBefore = m_State->jobs.size();
    TransferJob& job = m_CreateJob(scope.Get(), *request);
    const std::uint64_t handle = job.handle;
    try {
        entry.mapped() = UTILS::ScopedExceptionSafeThread(
            [this](std::uint64_t own) { m_PerformTransferThread(own); }, handle);
    } catch (...) {
        // The request leaves no trace. An entry that was in use before gets its contents back.
        std::swap<TransferConfiguration>(job, *request);
        if (m_State->jobs.size() > jobsBefore) {
            m_State->jobs.erase(handle);
        }
        throw;
    }
    entry.key() = entry.mapped().Thread().get_id();
    m_State->threads.insert(std::move(entry));
    return handle;
}

bool AsyncTransferAgentManager::CancelTransfer(std::uint64_t handle)
{
    LOG_DEBUG("handle: " << handle);
    TransferJob removed;  // destroyed without the mutex
    State::MutexScope scope(*m_State);
    const auto sleeper = m_State->sleepers.find(handle);
    if (sleeper != m_State->sleepers.end()) {
        LOG_DEBUG("Interrupting a thread that is sleeping");
        sleeper->second->notify_one();
    }
    return m_RemoveJob(scope.Get(), handle, removed);
}

// The order of the checks and the wording of the messages are fixed, grammar included.
bool AsyncTransferAgentManager::m_ValidateTransferConfig(
    const std::unique_ptr<TransferConfiguration>& configuration) const
{
    using HttpMethod = ITransferHandler::Configuration::HttpMethod;
    if (!configuration) {
        LOG_ERROR("transfer configuration is empty");
        return false;
    }
    if (configuration->halvordConfig && configuration->halvordConfig->resource.empty()) {
        LOG_ERROR("Halvord config was given without a resource");
        return false;
    }
    if (configuration->method == HttpMethod::EhttpPost && configuration->requestBody.empty()) {
        LOG_ERROR("Request body of the HTTP post can't be empty");
        return false;
    }
    if (configuration->method == HttpMethod::EhttpGet && !configuration->requestBody.empty()) {
        LOG_ERROR("Request body of a HTTP GET can not contain data");
        return false;
    }
    if (configuration->url.empty()) {
        LOG_ERROR("URL is empty");
        return false;
    }
    if (!configuration->dataCallback && !configuration->headerCallback) {
        LOG_ERROR("neither data or header download requested");
        return false;
    }
    if (!configuration->handlerFactory) {
        LOG_ERROR("Transfer Handler Factory is not set");
        return false;
    }
    return true;
}

ITransferAgentManager::TransferJob& AsyncTransferAgentManager::m_CreateJob(
    Lock& lock, TransferConfiguration& configuration)
{
    m_State->AssertHeld(lock, __FILE__, __LINE__);
    std::uint64_t handle = m_State->nextHandle;
    if (handle == InvalidHandle) {
        LOG_WARN("IP handle has wrapped around: ");  // without a number, on purpose
        handle = 0;
    }
    m_State->nextHandle = handle + 1;

    // Whatever can throw comes before the configuration is moved.
    LOG_INFO("Requesting transfer for: " << configuration.url << " handle: " << handle);
    if (configuration.headerCallback) {
        LOG_INFO("Registering header callback with handle: " << handle);
    }
    if (configuration.dataCallback) {
        LOG_INFO("Registering data callback with handle: " << handle);
    }
    if (configuration.completeCallback) {
        LOG_INFO("Registering complete callback with handle: " << handle);
    }
    TransferJob& job = m_State->jobs[handle];
    std::swap<TransferConfiguration>(job, configuration);
    job.handle = handle;
    return job;
}

ITransferAgentManager::TransferJob& AsyncTransferAgentManager::m_GetJob(Lock& lock,
                                                                        std::uint64_t handle)
{
    m_State->AssertHeld(lock, __FILE__, __LINE__);
    const auto found = m_State->jobs.find(handle);
    if (found != m_State->jobs.end()) {
        return found->second;
    }
    LOG_ERROR("job not found for:" << handle);
    // Never destroyed: a manager with static lifetime may outlive every other static.
    static TransferJob& notFound = *new TransferJob;
    return notFound;
}

bool AsyncTransferAgentManager::m_RemoveJob(Lock& lock, std::uint64_t handle, TransferJob& removed)
{
    m_State->AssertHeld(lock, __FILE__, __LINE__);
    LOG_DEBUG(" ");
    const auto found = m_State->jobs.find(handle);
    if (found == m_State->jobs.end()) {
        return false;
    }
    LOG_INFO("Cancelling transfer with handle: " << handle);
    removed = std::move(found->second);
    m_State->jobs.erase(found);
    return true;
}

void AsyncTransferAgentManager::m_PerformTransferThread(std::uint64_t handle)
{
    LOG_DEBUG("handle: " << handle);
    State::JobTable::node_type finished;  // destroyed without the mutex
    State::MutexScope scope(*m_State, State::MutexScope::AfterYield());
    Lock& lock = scope.Get();

    ITransferHandler::Result result;
    const TransferJob& job = m_GetJob(lock, handle);
    if (job.handle == handle) {
        result = job.segmented ? m_PerformDataTransferSegmented(lock, handle)
                               : m_PerformDataTransfer(lock, handle);
    }
    m_NotifyClientComplete(lock, handle, std::move(result));

    // During shutdown the entry is the destructor's to join.
    if (!m_State->terminating) {
        const std::thread::id id = std::this_thread::get_id();
        const auto entry = m_State->threads.find(id);
        if (entry != m_State->threads.end()) {
            LOG_INFO("Detaching thread id: " << id);
            entry->second.Thread().detach();
            m_State->threads.erase(entry);
        } else {
            LOG_WARN(" Failed to remove thread " << id << " associated with handle: " << handle);
        }
    }
    const auto found = m_State->jobs.find(handle);
    if (found != m_State->jobs.end()) {
        LOG_INFO("Cancelling transfer with handle: " << handle);
        finished = m_State->jobs.extract(found);
    }
}

std::unique_ptr<ITransferHandler> AsyncTransferAgentManager::m_CreateHandler(Lock& lock,
                                                                             const TransferJob& job)
{
    m_State->AssertHeld(lock, __FILE__, __LINE__);
    std::unique_ptr<ITransferHandler> handler =
        job.handlerFactory ? job.handlerFactory->Create() : nullptr;
    if (!handler) {
        LOG_ERROR("Handler factory returned no handler for handle: " << job.handle);
    }
    return handler;
}

ITransferHandler::Result AsyncTransferAgentManager::m_PerformDataTransfer(Lock& lock,
                                                                          std::uint64_t handle)
{
    LOG_DEBUG(" ");
    ITransferHandler::Result result;
    m_State->AssertHeld(lock, __FILE__, __LINE__);
    TransferJob& job = m_GetJob(lock, handle);
    if (job.handle != handle) {
        LOG_ERROR("Handle " << handle << " doesn't match the jobInfo");
        return result;
    }

    BytesPtr header;
    BytesPtr data;
    {
        const std::unique_ptr<ITransferHandler> handler = m_CreateHandler(lock, job);
        if (!handler) {
            return result;
        }
        ITransferHandler::Configuration configuration = ConfigurationFor(job);
        const bool wantsHeader = static_cast<bool>(job.headerCallback);
        const bool wantsData = static_cast<bool>(job.dataCallback);
        // From here on the job may be gone.

        if (!m_Pace(lock, handle, configuration)) {
            return result;
        }
        const State::MutexGap gap(lock, m_State->held);
        if (wantsHeader) {
            header = std::make_unique<ITransferHandler::Bytes>();
        }
        if (wantsData) {
            data = std::make_unique<ITransferHandler::Bytes>();
        }
        result = Fetch(*handler, std::move(configuration), handle, header, data);
        if (!result.success && wantsHeader && wantsData) {
            return result;  // without a notification, on purpose
        }
    }
    if (!m_NotifyClientData(lock, handle, std::move(header), std::move(data))) {
        result.success = false;
    }
    return result;
}

bool AsyncTransferAgentManager::m_Pace(Lock& lock, std::uint64_t handle,
                                       const ITransferHandler::Configuration& configuration)
{
    m_State->AssertHeld(lock, __FILE__, __LINE__);
    if (!configuration.randomDelay && !configuration.fixedDelay) {
        return true;
    }
    std::int64_t wait = 0;
    if (configuration.randomDelay) {
        const std::uint32_t seconds = DrawSeconds(*configuration.randomDelay);
        LOG_DEBUG_AS(PerformDataTransfer, "randomized request enabled");
        wait = std::uint32_t{seconds * 1000U};  // wraps at 32 bits, on purpose
    } else {
        LOG_DEBUG_AS(PerformDataTransfer, "wait before sending a request mode enabled");
        wait = *configuration.fixedDelay;
    }
    if (!m_State->AddSleeper(handle)) {
        LOG_ERROR_AS(PerformDataTransfer,
                     "Failed to create conditional variable for handle: " << handle);
        return false;
    }
    LOG_DEBUG_AS(PerformDataTransfer, "Start sleeping for: " << wait << " milliseconds");
    const bool interrupted = m_State->Sleep(lock, handle, wait);
    LOG_DEBUG_AS(PerformDataTransfer, (interrupted ? "Sleep interrupted" : "Finished sleeping"));
    m_State->RemoveSleeper(handle);
    return true;
}

ITransferHandler::Result AsyncTransferAgentManager::m_PerformDataTransferSegmented(
    Lock& lock, std::uint64_t handle)
{
    m_State->AssertHeld(lock, __FILE__, __LINE__);
    TransferJob& job = m_GetJob(lock, handle);
    if (job.handle != handle) {
        return {};
    }
    const std::unique_ptr<ITransferHandler> handler = m_CreateHandler(lock, job);
    if (!handler) {
        return {};
    }
    ITransferHandler::Configuration configuration = ConfigurationFor(job);
    TransferCallbackContext context{handle, this};
    const State::MutexGap gap(lock, m_State->held);
    return TransferByMove::Run(*handler, std::move(configuration), &s_CurlHeaderCb, &s_CurlBodyCb,
                               &context);
}

bool AsyncTransferAgentManager::s_CurlHeaderCb(BytesPtr chunk, void* context)
{
    const auto* own = static_cast<const TransferCallbackContext*>(context);
    return own && own->manager &&
           own->manager->m_NotifyClientData(own->handle, std::move(chunk), nullptr);
}

bool AsyncTransferAgentManager::s_CurlBodyCb(BytesPtr chunk, void* context)
{
    const auto* own = static_cast<const TransferCallbackContext*>(context);
    return own && own->manager &&
           own->manager->m_NotifyClientData(own->handle, nullptr, std::move(chunk));
}

// The mutex is not taken again after the client's calls: nothing of the job is touched then.
bool AsyncTransferAgentManager::m_NotifyClientData(std::uint64_t handle, BytesPtr header,
                                                   BytesPtr data)
{
    std::optional<DataNotification> notification;
    {
        State::MutexScope scope(*m_State);
        const TransferJob& job = m_GetJob(scope.Get(), handle);
        if (job.handle != handle) {
            return false;
        }
        notification.emplace(job);
    }
    notification->Deliver(std::move(header), std::move(data));
    return true;
}

bool AsyncTransferAgentManager::m_NotifyClientData(Lock& lock, std::uint64_t handle,
                                                   BytesPtr&& header, BytesPtr data)
{
    if (!m_State->AssertHeld(lock, __FILE__, __LINE__)) {
        return true;  // a failed check does not stop the transfer
    }
    const TransferJob& job = m_GetJob(lock, handle);
    if (job.handle != handle) {
        return false;
    }
    DataNotification copied(job);

    m_State->AssertHeld(lock, __FILE__, __LINE__);
    const State::MutexGap gap(lock, m_State->held);
    const DataNotification notification(std::move(copied));  // destroyed in the gap
    notification.Deliver(std::move(header), std::move(data));
    return true;
}

bool AsyncTransferAgentManager::m_NotifyClientComplete(Lock& lock, std::uint64_t handle,
                                                       ITransferHandler::Result&& result)
{
    if (!m_State->AssertHeld(lock, __FILE__, __LINE__)) {
        return true;
    }
    TransferJob& job = m_GetJob(lock, handle);
    if (job.handle != handle) {
        return false;
    }
    // The transfer is over. What belongs to the client leaves the job here, and is destroyed
    // without the mutex while shutdown still waits for this worker. The factory goes last: the
    // complete callback may use what it owns.
    DataCallback headerCallback = std::exchange(job.headerCallback, nullptr);
    DataCallback dataCallback = std::exchange(job.dataCallback, nullptr);
    CompleteCallback completeCallback = std::exchange(job.completeCallback, nullptr);
    std::unique_ptr<ITransferHandlerFactory> factory = std::move(job.handlerFactory);
    void* const userContext = job.userContext;

    m_State->AssertHeld(lock, __FILE__, __LINE__);
    const State::MutexGap gap(lock, m_State->held);
    headerCallback = nullptr;
    dataCallback = nullptr;
    const std::unique_ptr<ITransferHandlerFactory> lastDestroyed = std::move(factory);
    if (const CompleteCallback notifyComplete = std::move(completeCallback)) {
        notifyComplete(std::move(result), userContext);
    }
    return true;
}

}  // namespace VORTAN_MW
