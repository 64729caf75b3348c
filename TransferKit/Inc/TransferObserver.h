#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace VORTAN_MW {
namespace KIT {

/// Why a transfer or an attempt ended, for programs. The numbers are part of the interface; later
/// versions may add some.
enum class Category : std::uint32_t
{
    Success = 0,            ///< nothing failed
    InvalidRequest = 1,     ///< the request breaks a rule of the kit; nothing was sent
    NameNotFound = 2,       ///< the host's name could not be resolved
    ConnectionRefused = 3,  ///< the host is there, and nobody listens at the port
    NotConnected = 4,       ///< the connection could not be made for another reason
    TlsNotTrusted = 5,      ///< certificate, name or pinned key of the server are not as demanded
    TlsFailed = 6,          ///< the TLS handshake failed otherwise, or a file for it is unusable
    TimedOut = 7,           ///< one of the policy's times is over
    ConnectionLost = 8,     ///< the connection broke before the response was whole
    InvalidResponse = 9,    ///< what the server sent is no HTTP response, or contradicts itself
    HttpStatus = 10,        ///< the status is one that fails the transfer
    TooLarge = 11,          ///< header or body exceed the policy's bounds
    RedirectRefused = 12,   ///< a redirect leads where the policy forbids to go
    Changed = 13,           ///< the body broke off, and the server has another version since
    UploadFailed = 14,      ///< the file to upload could not be read, or became shorter
    Cancelled = 15,         ///< by the agent, or by destroying the session or the factory
    ClientStopped = 16,     ///< a callback refused a chunk or threw
    OutOfMemory = 17,       ///< there was not enough memory
    Internal = 18,          ///< libcurl reports a failure that fits nowhere else
    FileFailed = 19,        ///< the file could not be written, for example because the disk is full
    Busy = 20,              ///< another transfer or process is writing the same file
    WrongHash = 21,         ///< the body's SHA-256 is not the one that was given
    HandlerFailed = 22,     ///< a handler that is not the kit's failed; its log lines may say why
    NoThread = 23,          ///< no thread could be started for the transfer
};

/// How a transfer ended, or why an attempt failed. An event's belongs to that event; copy it to
/// keep it. A plain value: copying copies everything.
class [[gnu::visibility("default")]] TransferOutcome
{
public:
    /// The reason; Success if there was no failure.
    Category GetCategory() const;
    /// The last HTTP status that the server gave, 0 if it gave none.
    long GetHttpStatus() const;
    /// One English sentence for people. It holds no credentials and no part of the URL but its
    /// host, no bytes that the server sent, and no control characters.
    const std::string& GetSentence() const;

    /// Throws std::bad_alloc.
    TransferOutcome(const TransferOutcome& other);
    /// If it throws, nothing has changed.
    TransferOutcome& operator=(const TransferOutcome& other);
    ~TransferOutcome();

private:
    friend class EventAccess;
    friend class TransferEvent;
    struct Data;
    explicit TransferOutcome(std::shared_ptr<const Data> data);

    std::shared_ptr<const Data> m_Data;
};

/// Something that happened in a transfer. An event lives for the call that reports it. Each getter
/// may be called for each kind; where there is nothing to tell, numbers and times are 0 and texts
/// empty.
class [[gnu::visibility("default")]] TransferEvent
{
public:
    /// The numbers are part of the interface; an observer ignores those that it does not know.
    enum class Kind : std::uint32_t
    {
        Attempt = 1,     ///< an attempt begins
        Connection = 2,  ///< a request of the attempt has its connection, TLS included
        Header = 3,      ///< the header of a response is complete; of a redirect, too
        Progress = 4,    ///< bytes have moved; ten times a second at most
        Retry = 5,       ///< an attempt failed, and the next begins after GetDelay()
        End = 6,         ///< the last event of a transfer
    };

    /// What has happened.
    Kind GetKind() const;
    /// Counted from 1.
    std::uint32_t GetAttempt() const;
    /// Bytes of the body that the client has received from all attempts.
    std::uint64_t GetBytesDelivered() const;
    /// Length of the whole body, -1 while it is unknown.
    std::int64_t GetBytesExpected() const;
    /// Bytes of the request body that the current request has uploaded.
    std::uint64_t GetBytesUploaded() const;
    /// Header: the response's status.
    long GetHttpStatus() const;
    /// Header of a redirect: the URL to which it leads, or what the server sent if that leads
    /// nowhere. It comes from the server: it may hold credentials and any bytes.
    const std::string& GetRedirectTarget() const;
    /// Retry: the wait before the next attempt.
    std::chrono::milliseconds GetDelay() const;
    /// Retry: why the attempt failed. End: how the transfer ended. Else a success.
    const TransferOutcome& GetOutcome() const;

    /// From Connection on: whether the request uses a connection that an earlier one has made.
    bool IsConnectionKept() const;
    /// libcurl's timings of the last request: from its start until the name was resolved, ...
    std::chrono::microseconds GetNameLookupTime() const;
    /// ... TCP was connected, ...
    std::chrono::microseconds GetConnectTime() const;
    /// ... the TLS handshake was done, ...
    std::chrono::microseconds GetTlsTime() const;
    /// ... the first byte of the response arrived, ...
    std::chrono::microseconds GetFirstByteTime() const;
    /// ... and until this event.
    std::chrono::microseconds GetTotalTime() const;

    TransferEvent(const TransferEvent&) = delete;
    TransferEvent& operator=(const TransferEvent&) = delete;

private:
    friend class EventAccess;
    struct Data;
    TransferEvent();
    // A later version may own what it shows. NOLINTNEXTLINE(performance-trivially-destructible)
    ~TransferEvent();

    const Data* m_Data = nullptr;
};

/// Watches transfers. Written by the client:
///
///     class Watch : public VORTAN_MW::KIT::ITransferObserver {
///         void OnEvent(const VORTAN_MW::KIT::TransferEvent& event) override {
///             if (event.GetKind() == VORTAN_MW::KIT::TransferEvent::Kind::End) {
///                 std::cout << event.GetOutcome().GetSentence() << '\n';
///             }
///         }
///     };
class [[gnu::visibility("default")]] ITransferObserver
{
public:
    /// Called on the thread that performs the transfer, under an agent its worker, with no lock
    /// held. It may call the agent, also to cancel this transfer, and destroy the session; like a
    /// callback it must not destroy the agent. It delays the transfer for as long as it runs, and
    /// that time counts for SetAltogether and SetConnecting only. It should not throw: what it
    /// throws ends the transfer and leaves GetTransfer, which under an agent ends the process.
    ///
    /// An observer that is given to several transfers is called by several threads at once.
    virtual void OnEvent(const TransferEvent& event) = 0;

    virtual ~ITransferObserver();
};

}  // namespace KIT
}  // namespace VORTAN_MW
