#include "PlainManager.h"

#include <Utils.h>

#include <chrono>
#include <utility>

using VORTAN_MW::ITransferHandler;

PlainManager::~PlainManager()
{
    LOG_DEBUG(" ");
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        LOG_DEBUG("number of threads: " << m_Threads.size());
        m_Terminating = true;
    }
    for (auto& [handle, sleeper] : m_Sleepers) {
        LOG_DEBUG("Waking up sleeping thread with handle: " << handle);
        sleeper.notify_one();
    }
    for (auto& [id, thread] : m_Threads) {
        LOG_INFO("joining thread: " << id);
        thread.join();
        LOG_INFO("thread terminated: " << id);
    }
}

std::uint64_t PlainManager::RequestTransfer(std::unique_ptr<TransferConfiguration> request)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const std::uint64_t handle = m_Next++;
    LOG_DEBUG("Url: " << request->url);
    LOG_INFO("Requesting transfer for: " << request->url << " handle: " << handle);
    LOG_INFO("Registering data callback with handle: " << handle);
    LOG_INFO("Registering complete callback with handle: " << handle);
    m_Jobs.emplace(handle, std::move(request));
    std::thread thread(&PlainManager::m_Work, this, handle);
    const std::thread::id id = thread.get_id();
    m_Threads.emplace(id, std::move(thread));
    return handle;
}

void PlainManager::m_Work(std::uint64_t handle)
{
    LOG_DEBUG("handle: " << handle);
    Lock lock(m_Mutex);
    const bool segmented = m_Jobs.at(handle)->segmented;
    m_Complete(lock, handle,
               segmented ? m_TransferSegmented(lock, handle) : m_Transfer(lock, handle));
    if (!m_Terminating) {
        const auto own = m_Threads.find(std::this_thread::get_id());
        LOG_INFO("Detaching thread id: " << own->first);
        own->second.detach();
        m_Threads.erase(own);
    }
    LOG_INFO("Cancelling transfer with handle: " << handle);
    m_Jobs.erase(handle);
}

ITransferHandler::Result PlainManager::m_Transfer(Lock& lock, std::uint64_t handle)
{
    LOG_DEBUG(" ");
    const TransferConfiguration& job = *m_Jobs.at(handle);
    const std::unique_ptr<ITransferHandler> handler = job.handlerFactory->Create();
    const ITransferHandler::Configuration configuration(job);
    m_Pace(lock, handle, configuration);
    lock.unlock();
    auto data = std::make_unique<ITransferHandler::Bytes>();
    ITransferHandler::Result result = handler->GetTransfer(configuration, boost::none, *data);
    LOG_INFO("Successfully download data size: " << data->size());
    lock.lock();
    m_Deliver(lock, handle, std::move(data));
    return result;
}

ITransferHandler::Result PlainManager::m_TransferSegmented(Lock& lock, std::uint64_t handle)
{
    const TransferConfiguration& job = *m_Jobs.at(handle);
    const std::unique_ptr<ITransferHandler> handler = job.handlerFactory->Create();
    const ITransferHandler::Configuration configuration(job);
    lock.unlock();
    ITransferHandler::Result result = handler->GetTransfer(
        configuration,
        [this, handle](auto header, void*) { return m_Notify(handle, std::move(header), nullptr); },
        [this, handle](auto data, void*) { return m_Notify(handle, nullptr, std::move(data)); },
        nullptr);
    lock.lock();
    return result;
}

bool PlainManager::m_Notify(std::uint64_t handle, std::unique_ptr<ITransferHandler::Bytes> header,
                            std::unique_ptr<ITransferHandler::Bytes> data)
{
    Lock lock(m_Mutex);
    const auto found = m_Jobs.find(handle);
    if (found == m_Jobs.end()) {
        return false;
    }
    const DataCallback headerCallback = found->second->headerCallback;
    const DataCallback dataCallback = found->second->dataCallback;
    void* const userContext = found->second->userContext;
    lock.unlock();
    if (headerCallback) {
        headerCallback(std::move(header), userContext);
    }
    if (dataCallback) {
        dataCallback(std::move(data), userContext);
    }
    return true;
}

void PlainManager::m_Pace(Lock& lock, std::uint64_t handle,
                          const ITransferHandler::Configuration& configuration)
{
    if (!configuration.fixedDelay) {
        return;
    }
    LOG_DEBUG("wait before sending a request mode enabled");
    LOG_DEBUG("Start sleeping for: " << *configuration.fixedDelay << " milliseconds");
    if (!m_Terminating) {
        m_Sleepers[handle].wait_for(lock, std::chrono::milliseconds(*configuration.fixedDelay));
    }
    LOG_DEBUG("Sleep interrupted");
}

void PlainManager::m_Deliver(Lock& lock, std::uint64_t handle,
                             std::unique_ptr<ITransferHandler::Bytes> data)
{
    const TransferConfiguration& job = *m_Jobs.at(handle);
    const DataCallback callback = job.dataCallback;
    void* const userContext = job.userContext;
    lock.unlock();
    callback(std::move(data), userContext);
    lock.lock();
}

void PlainManager::m_Complete(Lock& lock, std::uint64_t handle, ITransferHandler::Result result)
{
    const TransferConfiguration& job = *m_Jobs.at(handle);
    const CompleteCallback callback = job.completeCallback;
    void* const userContext = job.userContext;
    lock.unlock();
    callback(std::move(result), userContext);
    lock.lock();
}
