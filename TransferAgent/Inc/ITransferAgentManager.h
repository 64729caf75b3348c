#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "ITransferHandler.h"

namespace VORTAN_MW {

// Runs transfers, each on a worker thread of its own, and reports them through callbacks.
//
// All operations may be called from any thread, also from inside a callback. Only the destructor
// must not run inside a callback of the same manager: it would wait for its own thread.
//
// At most 4 transfers are in progress at a time; a fifth request is refused, not queued.
class [[gnu::visibility("default")]] ITransferAgentManager
{
public:
    // Names no transfer; returned by every refused request. A handle is 64 bits wide, yet the
    // invalid one is 4294967295, and after 4294967294 handles start again at 0.
    static constexpr std::uint64_t InvalidHandle = 4294967295;

    // One chunk of received bytes, which the callback owns, and the request's userContext.
    //
    // If a client sets both headerCallback and dataCallback, then each chunk of either kind calls
    // both, the header callback first: one of them with the chunk, the other with null. A callback
    // must therefore accept null. The same happens to the one callback of a client that set only
    // one: null stands for a chunk of the other kind.
    using DataCallback =
        std::function<void(std::unique_ptr<ITransferHandler::Bytes>, void* userContext)>;

    // How the transfer ended, and the request's userContext. The last call for a transfer.
    using CompleteCallback = std::function<void(ITransferHandler::Result, void* userContext)>;

    // A request. The agent takes it over whole, together with the factory and the callbacks.
    //
    // Callbacks are copied while the agent holds its lock, so the copy constructor of a callable
    // must not call the agent; its destructor may. A callback must not throw: an exception that
    // leaves a worker is logged and ends the process.
    struct TransferConfiguration : ITransferHandler::Configuration
    {
        // Required.
        std::unique_ptr<ITransferHandlerFactory> handlerFactory;
        // False (plain): the agent collects header and body and hands each over whole, once, after
        // the transfer. True (segmented): chunks are handed over as they arrive, nothing is
        // collected, and there is no pacing.
        bool segmented = false;
        // Called on the worker thread, with no lock held. At least one of the first two is
        // required. Empty: not wanted. In a plain transfer only what is wanted is fetched.
        DataCallback headerCallback;
        DataCallback dataCallback;
        // Called once, unless the transfer was cancelled before: a cancelled transfer gets none.
        CompleteCallback completeCallback;
        // Handed to every callback unchanged; never dereferenced by the agent.
        void* userContext = nullptr;
    };

    // An accepted request under its handle, as the agent files it.
    struct TransferJob : TransferConfiguration
    {
        std::uint64_t handle = InvalidHandle;
    };

    // Starts a transfer and returns its handle at once, or InvalidHandle if the request is refused:
    // it is null or contradicts itself, the agent is being destroyed, or 4 transfers are in
    // progress. The log tells which. A refused request is destroyed, and none of its callbacks is
    // called.
    //
    // The worker does not touch the request before this function has returned. Throws
    // std::system_error if no thread can be started and std::bad_alloc; the request is then gone
    // without a trace.
    virtual std::uint64_t RequestTransfer(std::unique_ptr<TransferConfiguration> configuration) = 0;

    // Cancels a transfer. Returns true if it was in progress or waiting, false if the handle names
    // none (any more).
    //
    // From then on no callback of the transfer is started, completeCallback included; one that is
    // running already on the worker may still be running when this returns. The worker itself goes
    // on until its handler notices at the next chunk, and counts against the limit until then. A
    // transfer that waits for its turn to be sent (randomDelay, fixedDelay) stops waiting.
    virtual bool CancelTransfer(std::uint64_t handle) = 0;

    // Refuses further requests, wakes the transfers that wait and blocks until every transfer in
    // progress has ended, callbacks included. A transfer whose server is silent keeps it waiting.
    virtual ~ITransferAgentManager();
};

}  // namespace VORTAN_MW
