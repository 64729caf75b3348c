#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AsyncTransferAgentManager.h"
#include "AsyncTransferAgentManagerState.h"
#include "Gate.h"

// Of a delay that only a cancellation or a shutdown ends.
constexpr std::int64_t Forever = std::numeric_limits<std::int64_t>::max();

// As the log prints a thread's identifier.
std::string TextOf(std::thread::id id);

namespace VORTAN_MW {

// The one way for tests to the inside of the agent. Members that the agent calls with the mutex
// held take it here for the length of the call, unless a lock is passed.
class AsyncTransferAgentManagerPeer
{
public:
    using Manager = AsyncTransferAgentManager;
    using ManagerState = Manager::State;
    using Lock = std::unique_lock<std::mutex>;
    using BytesPtr = std::unique_ptr<ITransferHandler::Bytes>;
    using Context = Manager::TransferCallbackContext;

    explicit AsyncTransferAgentManagerPeer(ITransferAgentManager& manager)
        : m_Manager(static_cast<Manager&>(manager))
    {}

    Lock Hold() { return Lock(State().mutex); }
    // Whether any thread holds the mutex. Tried with another one: a thread must not try a mutex
    // that it holds.
    bool IsHeld() const;
    Context MakeContext(std::uint64_t handle) { return {handle, &m_Manager}; }

    void SetNextHandle(std::uint64_t handle);
    // Files a job without a worker.
    std::uint64_t CreateJob(ITransferAgentManager::TransferConfiguration configuration);
    std::size_t JobCount();
    std::size_t ThreadCount();
    std::size_t SleeperCount();
    void AddSleeper(std::uint64_t handle);
    // The identifier of the thread table's only entry, as text.
    std::string OnlyThread();
    // Takes the thread table's only entry out, as if its worker had never been filed.
    UTILS::ScopedExceptionSafeThread TakeOnlyThread();
    // Files a thread under its identifier, and detaches it. Returns the identifier as text.
    std::string FileDetachedThread(UTILS::ScopedExceptionSafeThread thread);

    static bool HeaderCallback(BytesPtr chunk, void* context)
    {
        return Manager::s_CurlHeaderCb(std::move(chunk), context);
    }
    static bool BodyCallback(BytesPtr chunk, void* context)
    {
        return Manager::s_CurlBodyCb(std::move(chunk), context);
    }
    bool NotifyData(Lock& lock, std::uint64_t handle, BytesPtr header, BytesPtr data)
    {
        return m_Manager.m_NotifyClientData(lock, handle, std::move(header), std::move(data));
    }
    bool NotifyComplete(Lock& lock, std::uint64_t handle, ITransferHandler::Result result)
    {
        return m_Manager.m_NotifyClientComplete(lock, handle, std::move(result));
    }
    const ITransferAgentManager::TransferJob& GetJob(Lock& lock, std::uint64_t handle)
    {
        return m_Manager.m_GetJob(lock, handle);
    }
    bool RemoveJob(Lock& lock, std::uint64_t handle)
    {
        ITransferAgentManager::TransferJob removed;
        return m_Manager.m_RemoveJob(lock, handle, removed);
    }
    ITransferHandler::Result PerformPlain(Lock& lock, std::uint64_t handle)
    {
        return m_Manager.m_PerformDataTransfer(lock, handle);
    }
    ITransferHandler::Result PerformSegmented(Lock& lock, std::uint64_t handle)
    {
        return m_Manager.m_PerformDataTransferSegmented(lock, handle);
    }
    void PerformTransferThread(std::uint64_t handle) { m_Manager.m_PerformTransferThread(handle); }

private:
    Manager::State& State() { return *m_Manager.m_State; }

    Manager& m_Manager;
};

}  // namespace VORTAN_MW

// What a handler does in place of a transfer.
using HandlerScript = std::function<VORTAN_MW::ITransferHandler::Result(
    const VORTAN_MW::ITransferHandler::TransferDetail&)>;

VORTAN_MW::ITransferHandler::Result MakeResult(bool success, long httpCode);

// Makes handlers that follow a script.
class ScriptedFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    explicit ScriptedFactory(HandlerScript script) : m_Script(std::move(script)) {}
    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override;

private:
    HandlerScript m_Script;
};

// Makes no handler.
class EmptyFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override { return nullptr; }
};

// Delivers this header and body to whatever is wanted, in buffers and chunks alike, and succeeds
// with status 200. A refused chunk ends it with failure.
HandlerScript Deliver(const std::string& header, const std::string& body);

// Fails with status 404 and delivers nothing.
HandlerScript Fail();

std::unique_ptr<VORTAN_MW::ITransferHandler::Bytes> MakeChunk(const std::string& text);

// A client of the agent that writes down what its callbacks receive: "header ab", "data null",
// "complete true 200".
class RecordingClient
{
public:
    using Request = VORTAN_MW::ITransferAgentManager::TransferConfiguration;

    // A plain request with all three callbacks.
    std::unique_ptr<Request> MakeRequest(HandlerScript script);

    std::vector<std::string> Events() const;
    // Waits for the complete callback.
    bool WaitForCompletion() { return m_Completed.Wait(); }

    void Add(const std::string& event);

private:
    mutable std::mutex m_Mutex;
    std::vector<std::string> m_Events;
    Gate m_Completed;
};

// Destroys a manager on a thread of its own, so that a test can look on.
class Shutdown
{
public:
    explicit Shutdown(std::unique_ptr<VORTAN_MW::ITransferAgentManager> manager)
        : m_Thread([manager = std::move(manager)]() mutable { manager.reset(); })
    {}
    Shutdown(const Shutdown&) = delete;
    Shutdown& operator=(const Shutdown&) = delete;
    ~Shutdown() { Join(); }

    void Join()
    {
        if (m_Thread.joinable()) {
            m_Thread.join();
        }
    }

private:
    std::thread m_Thread;
};

// While it lives, no thread can be started.
class NoThreadsCanStart
{
public:
    NoThreadsCanStart();
    ~NoThreadsCanStart();
    NoThreadsCanStart(const NoThreadsCanStart&) = delete;
    NoThreadsCanStart& operator=(const NoThreadsCanStart&) = delete;

private:
    std::size_t m_StackSize;
};
