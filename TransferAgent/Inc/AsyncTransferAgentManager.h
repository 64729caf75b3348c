#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "ITransferAgentManager.h"

namespace VORTAN_MW {

/// The transfer agent of this library. Clients call Create() and use the interface.
class [[gnu::visibility("default")]] AsyncTransferAgentManager : public ITransferAgentManager
{
public:
    /// Returns an agent that accepts requests at once. The caller owns it. Throws
    /// std::bad_alloc.
    static std::unique_ptr<ITransferAgentManager> Create();

    AsyncTransferAgentManager(const AsyncTransferAgentManager&) = delete;
    AsyncTransferAgentManager& operator=(const AsyncTransferAgentManager&) = delete;

    std::uint64_t RequestTransfer(std::unique_ptr<TransferConfiguration> configuration) override;

    bool CancelTransfer(std::uint64_t handle) override;

    ~AsyncTransferAgentManager() override;

private:
    friend class AsyncTransferAgentManagerPeer;  // tests

    using Lock = std::unique_lock<std::mutex>;
    using BytesPtr = std::unique_ptr<ITransferHandler::Bytes>;

    // What a handler of a segmented transfer hands back to the trampolines. It lives on the
    // worker's stack for as long as the handler works.
    struct TransferCallbackContext
    {
        std::uint64_t handle;
        AsyncTransferAgentManager* manager;
    };

    struct State;

    AsyncTransferAgentManager();

    // A member whose first argument is the lock expects it to hold the manager's mutex, and never
    // locks by itself. Those that let go of it for a while hold it again when they return.

    bool m_ValidateTransferConfig(const std::unique_ptr<TransferConfiguration>& configuration)
        const;

    // Files the configuration under a fresh handle. If the handle was still in use, the contents of
    // its entry are exchanged for the configuration's.
    TransferJob& m_CreateJob(Lock & lock, TransferConfiguration & configuration);

    // Returns the job; or, if there is none, a shared one with the invalid handle, which must not
    // be written to.
    TransferJob& m_GetJob(Lock & lock, std::uint64_t handle);

    // Moves a job out of the table into removed, for the caller to destroy without the mutex.
    // Returns false if there was none.
    bool m_RemoveJob(Lock & lock, std::uint64_t handle, TransferJob & removed);

    // The body of each worker.
    void m_PerformTransferThread(std::uint64_t handle);
    ITransferHandler::Result m_PerformDataTransfer(Lock & lock, std::uint64_t handle);
    ITransferHandler::Result m_PerformDataTransferSegmented(Lock & lock, std::uint64_t handle);

    // Waits as long as the configuration asks for, or until somebody wakes it. Returns false, with
    // the reason in the log, if the handle has a sleeper already.
    bool m_Pace(Lock & lock, std::uint64_t handle,
                const ITransferHandler::Configuration& configuration);

    // Returns null, with the reason in the log, if the job's factory makes no handler.
    std::unique_ptr<ITransferHandler> m_CreateHandler(Lock & lock, const TransferJob& job);

    // Hand chunks of a segmented transfer on; context points to a TransferCallbackContext. False
    // asks the handler to stop.
    static bool s_CurlHeaderCb(BytesPtr chunk, void* context);
    static bool s_CurlBodyCb(BytesPtr chunk, void* context);

    // Call the client's data callbacks, or its complete callback, without the mutex. False: the job
    // is gone.
    bool m_NotifyClientData(std::uint64_t handle, BytesPtr header, BytesPtr data);
    bool m_NotifyClientData(Lock & lock, std::uint64_t handle, BytesPtr && header, BytesPtr data);
    bool m_NotifyClientComplete(Lock & lock, std::uint64_t handle,
                                ITransferHandler::Result && result);

    const std::unique_ptr<State> m_State;
};

}  // namespace VORTAN_MW
