#include "AgentTestSupport.h"

#include <pthread.h>

#include <chrono>
#include <limits>
#include <sstream>

#include "ThreadAnnotations.h"

using VORTAN_MW::AsyncTransferAgentManagerPeer;
using VORTAN_MW::ITransferHandler;

bool AsyncTransferAgentManagerPeer::IsHeld() const
{
    bool held = false;
    std::thread([&] {
        held = !Lock(m_Manager.m_State->mutex, std::try_to_lock).owns_lock();
    }).join();
    return held;
}

// The peer takes the mutex itself, which the analysis cannot follow from outside.

VORTAN_NO_THREAD_ANALYSIS void AsyncTransferAgentManagerPeer::SetNextHandle(std::uint64_t handle)
{
    const Lock lock = Hold();
    State().nextHandle = handle;
}

VORTAN_NO_THREAD_ANALYSIS std::uint64_t AsyncTransferAgentManagerPeer::CreateJob(
    ITransferAgentManager::TransferConfiguration configuration)
{
    Lock lock = Hold();
    return m_Manager.m_CreateJob(lock, configuration).handle;
}

VORTAN_NO_THREAD_ANALYSIS std::size_t AsyncTransferAgentManagerPeer::JobCount()
{
    const Lock lock = Hold();
    return State().jobs.size();
}

VORTAN_NO_THREAD_ANALYSIS std::size_t AsyncTransferAgentManagerPeer::ThreadCount()
{
    const Lock lock = Hold();
    return State().threads.size();
}

VORTAN_NO_THREAD_ANALYSIS std::size_t AsyncTransferAgentManagerPeer::SleeperCount()
{
    const Lock lock = Hold();
    return State().sleepers.size();
}

VORTAN_NO_THREAD_ANALYSIS void AsyncTransferAgentManagerPeer::AddSleeper(std::uint64_t handle)
{
    const Lock lock = Hold();
    State().AddSleeper(handle);
}

VORTAN_NO_THREAD_ANALYSIS std::string AsyncTransferAgentManagerPeer::OnlyThread()
{
    const Lock lock = Hold();
    return TextOf(State().threads.begin()->first);
}

VORTAN_NO_THREAD_ANALYSIS VORTAN_MW::UTILS::ScopedExceptionSafeThread
AsyncTransferAgentManagerPeer::TakeOnlyThread()
{
    const Lock lock = Hold();
    auto entry = State().threads.extract(State().threads.begin());
    return std::move(entry.mapped());
}

VORTAN_NO_THREAD_ANALYSIS std::string AsyncTransferAgentManagerPeer::FileDetachedThread(
    UTILS::ScopedExceptionSafeThread thread)
{
    const Lock lock = Hold();
    const std::thread::id id = thread.Thread().get_id();
    thread.Thread().detach();
    State().threads.emplace(id, std::move(thread));
    return TextOf(id);
}

std::string TextOf(std::thread::id id)
{
    std::ostringstream stream;
    stream << id;
    return stream.str();
}

ITransferHandler::Result MakeResult(bool success, long httpCode)
{
    ITransferHandler::Result result;
    result.success = success;
    result.httpCode = std::make_unique<long>(httpCode);
    return result;
}

namespace {

class ScriptedHandler : public ITransferHandler
{
public:
    explicit ScriptedHandler(HandlerScript script) : m_Script(std::move(script)) {}
    Result DoTransfer(const TransferDetail& detail) const override { return m_Script(detail); }

private:
    HandlerScript m_Script;
};

bool DeliverTo(ITransferHandler::Bytes* buffer, const ITransferHandler::ChunkCallback& callback,
               void* userData, const std::string& text)
{
    if (buffer) {
        *buffer = *MakeChunk(text);
    }
    return !callback || callback(MakeChunk(text), userData);
}

std::string Describe(const std::unique_ptr<ITransferHandler::Bytes>& chunk)
{
    return chunk ? std::string(chunk->begin(), chunk->end()) : "null";
}

}  // namespace

std::unique_ptr<ITransferHandler> ScriptedFactory::Create()
{
    return std::make_unique<ScriptedHandler>(m_Script);
}

HandlerScript Deliver(const std::string& header, const std::string& body)
{
    return [=](const ITransferHandler::TransferDetail& detail) {
        const bool accepted =
            DeliverTo(detail.headerBuffer, detail.headerCallback, detail.userData, header) &&
            DeliverTo(detail.dataBuffer, detail.dataCallback, detail.userData, body);
        return MakeResult(accepted, 200);
    };
}

HandlerScript Fail()
{
    return [](const ITransferHandler::TransferDetail&) { return MakeResult(false, 404); };
}

std::unique_ptr<ITransferHandler::Bytes> MakeChunk(const std::string& text)
{
    return std::make_unique<ITransferHandler::Bytes>(text.begin(), text.end());
}

std::unique_ptr<RecordingClient::Request> RecordingClient::MakeRequest(HandlerScript script)
{
    auto request = std::make_unique<Request>();
    request->url = "u";
    request->handlerFactory = std::make_unique<ScriptedFactory>(std::move(script));
    request->headerCallback = [this](auto chunk, void*) { Add("header " + Describe(chunk)); };
    request->dataCallback = [this](auto chunk, void*) { Add("data " + Describe(chunk)); };
    request->completeCallback = [this](ITransferHandler::Result result, void*) {
        Add(std::string("complete ") + (result.success ? "true " : "false ") +
            (result.httpCode ? std::to_string(*result.httpCode) : "null"));
        m_Completed.Open();
    };
    return request;
}

std::vector<std::string> RecordingClient::Events() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Events;
}

void RecordingClient::Add(const std::string& event)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Events.push_back(event);
}

namespace {

// Sets the stack size of threads started from now on and returns the former one.
std::size_t SetDefaultStackSize(std::size_t size)
{
    pthread_attr_t attributes;
    pthread_getattr_default_np(&attributes);
    std::size_t former = 0;
    pthread_attr_getstacksize(&attributes, &former);
    pthread_attr_setstacksize(&attributes, size);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
    return former;
}

}  // namespace

// A stack that fills most of the address space cannot be had.
NoThreadsCanStart::NoThreadsCanStart()
    : m_StackSize(
          SetDefaultStackSize(std::numeric_limits<std::size_t>::max() / 4 * 3 / 4096 * 4096))
{}

NoThreadsCanStart::~NoThreadsCanStart()
{
    SetDefaultStackSize(m_StackSize);
}
