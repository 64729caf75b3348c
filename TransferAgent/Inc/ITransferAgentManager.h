#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "ITransferHandler.h"

namespace VORTAN_MW {

/// Runs transfers, each on a worker thread of its own, and reports them through callbacks.
///
/// All operations may be called from any thread, also from inside a callback. Only the destructor
/// must not run on a worker of the same agent, be it inside a callback or inside the destructor
/// of something that a request owns: it would wait for its own thread, which ends the process. Nor
/// may another thread be inside an operation of the agent, or enter one, while it is destroyed.
///
/// At most 4 transfers are in progress at a time; a fifth request is refused, not queued. A place
/// is free again shortly after the complete callback has returned, not yet inside it.
///
/// The handler is destroyed first, when its transfer has ended, with the agent's lock held. The
/// rest is destroyed on the worker without that lock: headerCallback and dataCallback before the
/// complete callback is called, completeCallback and then the factory after it has returned, and
/// all of them before the transfer's place is free. So a complete callback may use what its factory
/// owns.
///
/// Unless the complete callback has begun, CancelTransfer destroys the factory and the callbacks on
/// the thread that cancels, before it returns; a data callback that is running keeps a copy of
/// itself. The handler may still be working then: after a cancellation it may outlive its factory.
/// A refused request is destroyed on the thread that requested it.
class [[gnu::visibility("default")]] ITransferAgentManager
{
public:
    /// Names no transfer; returned by every refused request. A handle is 64 bits wide, yet the
    /// invalid one is 4294967295, and after 4294967294 handles start again at 0. A transfer that is
    /// still in progress under such a handle is overwritten: its worker then notifies the callbacks
    /// of the later request.
    static constexpr std::uint64_t InvalidHandle = 4294967295;

    /// Received bytes, which the callback owns, or null, and the request's userContext.
    ///
    /// In a segmented transfer each chunk, of the header or of the body, calls both headerCallback
    /// and dataCallback, as far as they are set and in this order: the one of its kind with the
    /// chunk, the other with null. In a plain transfer each is called at most once, after the
    /// transfer, with all bytes of its kind. If that fails, a client that has set one of them gets
    /// null, and a client that has set both is not called. So null must always be expected. If the
    /// factory makes no handler, none is called.
    ///
    /// Each notification calls a copy that is made for it: what a callable changes in itself is
    /// lost with the copy. State that lasts belongs behind a pointer or a reference.
    ///
    /// Header bytes are all header lines that the handler receives. With the libcurl handler these
    /// include the lines of redirects and of 1xx responses, and trailers, which follow the body.
    using DataCallback =
        std::function<void(std::unique_ptr<ITransferHandler::Bytes>, void* userContext)>;

    /// How the transfer ended, and the request's userContext. The last call for a transfer; a
    /// cancelled one gets none.
    using CompleteCallback = std::function<void(ITransferHandler::Result, void* userContext)>;

    /// A request. The agent takes it over whole, together with the factory and the callbacks.
    ///
    /// Callbacks are copied while the agent holds its lock, so the copy constructor of a callable
    /// must not call the agent; its destructor may. What a callback, a factory or a handler throws
    /// on a worker is logged and ends the process.
    struct TransferConfiguration : ITransferHandler::Configuration
    {
        /// Required.
        std::unique_ptr<ITransferHandlerFactory> handlerFactory;
        /// False (plain): the agent collects header and body and hands each over whole, once, after
        /// the transfer. True (segmented): chunks are handed over as they arrive, nothing is
        /// collected, and there is no pacing.
        bool segmented = false;
        /// Called on the worker thread, with no lock held. Empty: not wanted. At least one of this
        /// and dataCallback is required. A plain transfer fetches only what is wanted.
        DataCallback headerCallback;
        /// The same for the body. Needed for plain uploads with the libcurl handler: without it, a
        /// POST or PUT goes out as a HEAD, uploads nothing, and succeeds.
        DataCallback dataCallback;
        /// Called on the worker thread, with no lock held, once.
        CompleteCallback completeCallback;
        /// Handed to every callback unchanged; never dereferenced by the agent. What it points to
        /// must outlive the last callback: see CancelTransfer.
        void* userContext = nullptr;
    };

    /// An accepted request under its handle, as the agent files it.
    struct TransferJob : TransferConfiguration
    {
        /// Names the transfer, to its client too.
        std::uint64_t handle = InvalidHandle;
    };

    /// Starts a transfer and returns its handle at once, or InvalidHandle if the request is
    /// refused: it is null or contradicts itself, its url is empty (which a halvordConfig does not
    /// make up for), the agent is being destroyed, or 4 transfers are in progress. The log tells
    /// which. A refused request is destroyed, and none of its callbacks is called.
    ///
    /// The worker may be ahead of the caller: callbacks may run before the caller has seen the
    /// handle. Throws std::system_error if no thread can be started, and std::bad_alloc; the
    /// request is then gone without a trace.
    virtual std::uint64_t RequestTransfer(std::unique_ptr<TransferConfiguration> configuration) = 0;

    /// Cancels a transfer. Returns true if it was waiting or in progress, false if the handle names
    /// none (any more).
    ///
    /// No notification begins afterwards. One that is under way already is delivered whole: both
    /// data callbacks, or the complete callback, may still be running when this returns, or start
    /// then. What they use must be owned by them or outlive the agent.
    ///
    /// The worker goes on meanwhile, and keeps its place among the 4: that of a plain transfer
    /// until all of its response has arrived, that of a segmented one until its next chunk. A
    /// transfer that waits to be sent (randomDelay, fixedDelay) stops waiting; it is then still
    /// sent, and its response dropped. A call waits while a factory of any request is in Create().
    /// Throws std::bad_alloc, in which case the transfer may go on.
    ///
    /// The log's line "Cancelling transfer with handle" tells of no cancellation: every transfer
    /// that ends normally is removed with it, too.
    virtual bool CancelTransfer(std::uint64_t handle) = 0;

    /// Refuses further requests, wakes the transfers that wait, which are then sent, and blocks
    /// until every transfer in progress has ended, callbacks included; none runs afterwards. A
    /// transfer whose server is silent keeps it waiting.
    virtual ~ITransferAgentManager();
};

}  // namespace VORTAN_MW
