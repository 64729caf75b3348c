#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>

#include "HttpSession.h"
#include "ITransferAgentManager.h"
#include "TransferObserver.h"

namespace VORTAN_MW {
namespace KIT {

/// Names a request that a queue has accepted, and no other one of that queue. Never 0.
using Ticket = std::uint64_t;

/// Which of the waiting requests starts first. The numbers are part of the interface.
enum class Priority : std::uint32_t
{
    Low = 0,     ///< one start in seven
    Normal = 1,  ///< two starts in seven
    High = 2,    ///< four starts in seven
};

/// What Fetch yields.
struct Response
{
    TransferOutcome outcome;         ///< with the HTTP status
    ITransferHandler::Bytes header;  ///< all header lines; empty if the transfer failed
    ITransferHandler::Bytes body;    ///< empty if the transfer failed
};

/// Watches the requests of a queue. Written by the client. Its calls come in order for each ticket,
/// and for several tickets at once.
class [[gnu::visibility("default")]] ITransferQueueObserver
{
public:
    /// Something has happened to a transfer, before its outcome: every kind of event but End. Of
    /// handlers that are not the kit's, only Attempt and Retry are reported.
    virtual void OnEvent(Ticket ticket, const TransferEvent& event);

    /// How the request ended. The last call for a ticket, and exactly one for each. The request
    /// with its callbacks and factory is destroyed by then. The category is Cancelled if a cancel
    /// or the queue's destructor ended the request, and the transfer's own if that ended first.
    virtual void OnOutcome(Ticket ticket, const TransferOutcome& outcome) = 0;

    virtual ~ITransferQueueObserver();
};

/// Performs any number of requests, at most four at a time, and tells one outcome for each.
///
///     using namespace VORTAN_MW::KIT;
///     TransferQueue queue(std::make_shared<HttpSession>(TransferPolicy()));
///     auto page = queue.Fetch("https://example.org/").get().body;
///     auto outcome = queue.Download("https://example.org/a.bin", "/var/lib/device/a.bin").get();
///
/// Requests of one priority start in the order in which they were added. Of seven starts four go to
/// High, two to Normal and one to Low; a priority that has no request leaves its start to the
/// highest one that has. So none waits for ever. A transfer that waits for its next attempt leaves
/// its place to another, and then goes before the requests of its priority that have not begun.
///
/// A session's requests are tried again as its policy says. The queue has an agent of its own.
/// Any number of threads may use a queue at once, also from inside its callbacks; none while it is
/// destroyed. It belongs to the process that made it: a child made by fork must not use it.
class [[gnu::visibility("default")]] TransferQueue
{
public:
    /// A request, as an agent takes it.
    using TransferConfiguration = ITransferAgentManager::TransferConfiguration;
    /// Runs a closure, later or at once, on a thread of the client's choice: exactly once. It must
    /// neither throw nor wait for the queue. Called by several threads at once.
    using Executor = std::function<void(std::function<void()>)>;

    /// observer: null if only Fetch and Download are used, or if outcomes do not matter.
    ///
    /// executor: if there is one, all calls of observers go through it, and the order for each
    /// ticket is kept. Without one they come on the transfer's worker, or, for a request that has
    /// none, on the queue's own thread, which starts no transfer until the call returns. The
    /// callbacks of a request always come on its worker.
    ///
    /// Throws std::invalid_argument if session is null; std::system_error if the queue's thread
    /// cannot be started; std::bad_alloc.
    explicit TransferQueue(std::shared_ptr<HttpSession> session,
                           std::shared_ptr<ITransferQueueObserver> observer = nullptr,
                           Executor executor = nullptr);
    TransferQueue(const TransferQueue&) = delete;
    TransferQueue& operator=(const TransferQueue&) = delete;
    /// Cancels all requests and returns when every outcome has been told, or handed to the
    /// executor. Requests of a session take less than 100 ms for it, besides the time that
    /// callbacks and file-system calls take. A handler of another factory is waited for; it learns
    /// of the end when its factory is destroyed.
    ///
    /// Must not be called inside a callback of the queue or of a request, because it would wait for
    /// itself: it then ends the process, with a sentence on standard error.
    ~TransferQueue();

    /// Queues a request. Without a factory it gets one of the queue's session. Returns its ticket,
    /// or 0 while the queue is destroyed. The outcome may be told before the call returns.
    ///
    /// If the transfer of a plain request (segmented = false) succeeds, each of its callbacks is
    /// called once, before the outcome. A segmented one gets header and body in chunks as they
    /// arrive. No callback gets null. A request without callbacks receives its body and drops it.
    /// fixedDelay and randomDelay, also of a segmented request, are waited for in the queue. The
    /// request must not have a completeCallback: the observer is told how it ended.
    ///
    /// attempts: how often a request is tried if its factory is not a session's, because only the
    /// client knows whether its handler may repeat the request. The waits and the budget are those
    /// of the session's policy. A segmented request is not tried again once it has delivered a
    /// byte, unless it has a FileSink. Requests of a session have the attempts of their policy.
    ///
    /// Throws std::invalid_argument, with one sentence, if an agent would refuse the request or if
    /// there is no such priority; std::bad_alloc.
    Ticket Add(std::unique_ptr<TransferConfiguration> request, Priority priority = Priority::Normal,
               std::uint32_t attempts = 1);

    /// Cancels a request. Returns true if it had not ended; its outcome then tells whether the
    /// cancel or the transfer was quicker. Observers are never called inside, but the request's
    /// factory may be destroyed.
    bool Cancel(Ticket ticket);

    /// Cancels all requests that have been added, those of Fetch and Download too.
    void CancelAll();

    /// Gets what the URL names. The future is always fulfilled, also when the queue is destroyed;
    /// with an exception only for lack of memory. The session's policy bounds the body's length. No
    /// observer is called. Throws std::invalid_argument if the URL is empty; std::bad_alloc.
    std::future<Response> Fetch(const std::string& url);

    /// Downloads what the URL names into a file, as a FileSink does. The future as with Fetch.
    /// Throws what the constructor of FileSink throws, and what Fetch throws.
    std::future<TransferOutcome> Download(const std::string& url, const std::string& path,
                                          const std::string& sha256 = std::string());

private:
    struct Data;

    std::unique_ptr<Data> m_Data;
};

}  // namespace KIT
}  // namespace VORTAN_MW
