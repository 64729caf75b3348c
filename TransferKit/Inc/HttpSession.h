#pragma once

#include <memory>
#include <string>

#include "ITransferAgentManager.h"
#include "ITransferHandler.h"
#include "TransferObserver.h"
#include "TransferPolicy.h"

namespace VORTAN_MW {
namespace KIT {

/// What belongs to one transfer, beside its configuration. A plain value.
class [[gnu::visibility("default")]] TransferOptions
{
public:
    TransferOptions();
    /// The observer is shared, everything else copied. Throws std::bad_alloc.
    TransferOptions(const TransferOptions& other);
    /// Like the copy constructor. If it throws, nothing has changed.
    TransferOptions& operator=(const TransferOptions& other);
    ~TransferOptions();

    /// Hears of the transfer's course. Shared with the transfer; null: nobody does.
    TransferOptions& SetObserver(std::shared_ptr<ITransferObserver> observer);
    /// User and password for HTTP Basic authentication, sent to the origin of the transfer's URL
    /// only. A URL that holds credentials is refused, because an agent writes it to its log. The
    /// user must not contain a colon.
    TransferOptions& SetCredentials(std::string user, std::string password);
    /// Whether a POST may be sent again although the server may have acted on it. Default: false,
    /// and a POST is repeated only if no byte of it was sent.
    TransferOptions& SetRepeatablePost(bool repeatable);

private:
    friend class HttpSession;
    struct Data;

    std::unique_ptr<Data> m_Data;
};

/// HTTP and HTTPS transfers that end, try again, go on where they broke off, stay within the bounds
/// of a policy, and share connections, TLS sessions and certificate authorities.
///
///     VORTAN_MW::KIT::HttpSession session{VORTAN_MW::KIT::TransferPolicy()};
///     auto agent = VORTAN_MW::AsyncTransferAgentManager::Create();
///     auto request = std::make_unique<VORTAN_MW::ITransferAgentManager::TransferConfiguration>();
///     request->url = "https://example.org/";
///     request->handlerFactory = session.MakeFactory();
///     request->dataCallback = takeBody;
///     agent->RequestTransfer(std::move(request));
///
/// Any number of threads may use a session at once; none while it is destroyed. One session serves
/// a whole program. A child process made by fork may use the session, too, and then has connections
/// of its own; it disturbs none of the parent's.
class [[gnu::visibility("default")]] HttpSession
{
public:
    /// Reads the certificate authorities that the policy names. libcurl's own are read when the
    /// first https connection needs them, and a failure is then that of the transfer. The first
    /// session of the process initialises libcurl.
    ///
    /// Throws std::invalid_argument, with one sentence, if the policy contradicts itself;
    /// std::runtime_error if the named authorities cannot be read; std::bad_alloc.
    explicit HttpSession(TransferPolicy policy);
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;
    /// Stops the session's transfers, which end as Cancelled, and does not wait for them. Factories
    /// and handlers may outlive the session; their transfers fail.
    ~HttpSession();

    /// Makes the handler factory of one request. Destroying a factory stops the transfers of its
    /// handlers; that is how an agent's CancelTransfer reaches a transfer. So without an agent,
    /// keep the factory for as long as the handler works.
    ///
    /// A transfer is free within 100 ms of that, unless a callback of the client's or a file-system
    /// call is running. Throws std::bad_alloc.
    std::unique_ptr<ITransferHandlerFactory> MakeFactory();
    /// The same with options, which are copied.
    std::unique_ptr<ITransferHandlerFactory> MakeFactory(const TransferOptions& options);

    /// Has a request upload a regular file, which is read as it is sent. Call it last, when the
    /// request's method and factory are set: a method other than POST becomes PUT, and without a
    /// factory MakeFactory() makes one. It also sets requestBody to a placeholder, which is not
    /// sent, because an agent refuses a POST without one.
    ///
    /// The file is opened when the transfer begins. Its length is taken then; a file that becomes
    /// shorter meanwhile fails the transfer. Throws std::invalid_argument if the path is empty or
    /// the request has a factory that this session has not made; std::bad_alloc.
    void AttachUpload(ITransferAgentManager::TransferConfiguration & request,
                      const std::string& path);

private:
    friend class SessionAccess;
    struct Data;

    std::unique_ptr<Data> m_Data;
};

}  // namespace KIT
}  // namespace VORTAN_MW
