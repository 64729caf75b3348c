#pragma once

#include <boost/optional.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// All names of this library.
namespace VORTAN_MW {

/// One way of moving bytes: HTTP through libcurl, a local file, or a class of the client's own.
///
/// A handler keeps no state between transfers. Each call of GetTransfer performs one whole transfer
/// on the calling thread and returns when it is over; header and body bytes arrive meanwhile, on
/// that same thread, in the caller's buffers or callbacks. One thread at a time may use a handler.
///
/// A transfer agent (ITransferAgentManager) obtains a handler per transfer from a factory. Handlers
/// may equally be used directly, without an agent. An agent destroys a handler while it holds its
/// own lock: the destructor must not call the agent.
class [[gnu::visibility("default")]] ITransferHandler
{
public:
    /// A chunk, or the whole, of a header or a body.
    using Bytes = std::vector<std::uint8_t>;

    /// What to transfer, and how. A plain value: copying copies every string and container.
    /// A handler reads the fields that concern it and ignores the others.
    struct Configuration
    {
        /// The HTTP method. The numbers are part of the interface.
        enum class HttpMethod : std::uint32_t
        {
            /// Whatever the handler's library does when it is told nothing: GET, even with a
            /// requestBody, which is then not sent.
            Default = 0,
            EhttpGet = 1,   ///< GET; an agent refuses one with a requestBody
            EhttpHead = 2,  ///< HEAD
            EhttpPost = 3,  ///< POST; an agent refuses one without a requestBody
            EhttpPut = 4,   ///< PUT
        };

        /// The version of HTTP to ask for. The numbers are part of the interface.
        enum class HttpVersion : std::uint32_t
        {
            EversionUnspecified = 0,  ///< whatever the wrapper library prefers
            Eversion10 = 1,           ///< HTTP/1.0
            Eversion11 = 2,           ///< HTTP/1.1
            Eversion20 = 3,           ///< HTTP/2
        };

        /// Addresses the device maker's own servers, which know resources instead of URLs.
        struct HalvordConfig
        {
            /// Path of the resource on the server. An agent refuses an empty one.
            std::string resource;
            /// Key and value pairs of the query string, not yet encoded, in sending order.
            std::vector<std::pair<std::string, std::string>> queryParameters;
        };

        /// Bounds of a random wait, in seconds, both included. With min above max the range is
        /// taken modulo 2^32. The wait is counted in milliseconds modulo 2^32: more than 4294967
        /// seconds come out as a shorter wait.
        struct RandomDelay
        {
            std::uint32_t min = 0;  ///< seconds
            std::uint32_t max = 0;  ///< seconds
        };

        /// The target. A URL for the HTTP handlers, of any scheme that libcurl knows, file: too; a
        /// path for the file reader. An agent refuses an empty one, even if a halvordConfig takes
        /// its place. It is logged whole, with a password if it has one.
        std::string url;
        /// libcurl handler: an HTTP status of 400 or above fails the transfer.
        bool failOnError = true;
        /// Read by no handler; it keeps the layout of this record as designed.
        bool reservedFlag = false;
        /// HTTP handlers only.
        HttpMethod method = HttpMethod::Default;
        /// Vendor handler only.
        HttpVersion httpVersion = HttpVersion::Eversion11;
        /// Further request headers, as (name, value) in sending order. They are sent as they are, a
        /// line break included, and the libcurl handler sends them to the target of a redirect,
        /// too. Without a Content-Type among them, a POST is declared as
        /// application/x-www-form-urlencoded by libcurl.
        std::vector<std::pair<std::string, std::string>> headers;
        /// What a POST or PUT uploads; any byte values. The libcurl handler uploads it only if the
        /// response's body is wanted: else the request goes out as a HEAD, and succeeds.
        std::string requestBody;
        /// Carried with the request; read by no handler.
        std::vector<Bytes> bodyParts;
        /// Vendor handler only. When present, it takes the place of url.
        boost::optional<HalvordConfig> halvordConfig;
        /// Vendor handler only: do not verify the server's certificate. For testing.
        bool allowSelfSignedCertificates = false;
        /// Vendor handler only, as are the following: the wrapper library's settings, handed to it
        /// unchanged; it defines what they mean. This is the first argument of its time-out.
        int timeoutArg1 = 0;
        long wrapperOption30 = 30;  ///< vendor handler only: option 30
        int timeoutArg2 = 10;       ///< vendor handler only: second argument of the time-out
        long wrapperOption20 = 1;   ///< vendor handler only: option 20
        /// Vendor handler only: option 21, which is set only if wrapperOption20 is not 0.
        long wrapperOption21 = 1;
        long wrapperOption31 = 100;       ///< vendor handler only: option 31
        long wrapperOption32 = 30;        ///< vendor handler only: option 32
        long wrapperOption27 = 15728640;  ///< vendor handler only: option 27
        bool verbose = false;             ///< vendor handler only: its verbose mode
        /// Pacing, read by a transfer agent and only for a plain (not segmented) transfer: wait a
        /// random number of seconds before sending. It wins if fixedDelay is present too.
        boost::optional<RandomDelay> randomDelay;
        /// Pacing likewise: wait this many milliseconds before sending. 0 or less ends at once.
        boost::optional<std::int64_t> fixedDelay;
    };

    /// Receives one chunk of header or body bytes, which it owns, and the transfer's userData.
    /// Returning false asks the handler to stop; the file reader, which has only one chunk of each
    /// kind, does not. Called on the thread that called GetTransfer. It should not throw: what it
    /// throws ends the transfer and leaves GetTransfer after the handler has cleaned up.
    using ChunkCallback = std::function<bool(std::unique_ptr<Bytes>, void*)>;

    /// One transfer as a handler sees it: the configuration and where the bytes go. It lives for
    /// one call of GetTransfer; a handler keeps no pointer to it or into it afterwards.
    ///
    /// The header is wanted when headerBuffer or headerCallback is set, the body likewise.
    struct TransferDetail : Configuration
    {
        /// Not owned; null when not wanted. A handler empties a buffer before it fills it.
        Bytes* headerBuffer = nullptr;
        /// The same for the body.
        Bytes* dataBuffer = nullptr;
        /// Empty when not wanted. Each received chunk is handed over as a copy of its own.
        ChunkCallback headerCallback;
        /// The same for the body.
        ChunkCallback dataCallback;
        /// Second argument of both callbacks; never dereferenced by a handler.
        void* userData = nullptr;
        /// How many bytes of requestBody have been handed to the upload.
        mutable std::size_t bodyOffset = 0;
    };

    /// How a transfer ended. Can be moved, not copied.
    struct Result
    {
        /// False also when only a part of the bytes arrived. Of a body whose length the server does
        /// not tell, libcurl takes what has arrived when the connection closes for the whole.
        bool success = false;
        /// The HTTP status, 0 if the server never answered; null if there is none to tell.
        std::unique_ptr<long> httpCode;
    };

    virtual ~ITransferHandler();

    /// Performs the transfer that detail describes. Called through GetTransfer.
    virtual Result DoTransfer(const TransferDetail& detail) const = 0;

    /// Transfers into the caller's buffers, which are emptied first; an absent buffer means that
    /// those bytes are not wanted. Blocks until the transfer is over. After a failure the buffers
    /// hold what had arrived.
    ///
    /// Reports failure in the result. Throws only what allocation and callbacks throw.
    Result GetTransfer(const Configuration& configuration, boost::optional<Bytes&> header,
                       boost::optional<Bytes&> data) const;

    /// The same with chunks handed to callbacks as they arrive; an empty callback means that those
    /// bytes are not wanted. userData reaches both callbacks unchanged.
    Result GetTransfer(const Configuration& configuration, ChunkCallback headerCallback,
                       ChunkCallback dataCallback, void* userData) const
    {
        return m_GetTransfer(configuration, std::move(headerCallback), std::move(dataCallback),
                             userData);
    }

private:
    friend class TransferByMove;

    Result m_GetTransfer(Configuration && configuration, boost::optional<Bytes&> header,
                         boost::optional<Bytes&> data) const;

    // An lvalue is copied into the detail, an rvalue moved.
    template <typename AnyConfiguration>
    Result m_GetTransfer(AnyConfiguration && configuration, ChunkCallback && headerCallback,
                         ChunkCallback && dataCallback, void* userData) const
    {
        s_TraceEntry("GetTransfer", __LINE__);
        TransferDetail detail;
        static_cast<Configuration&>(detail) = std::forward<AnyConfiguration>(configuration);
        detail.headerCallback = std::move(headerCallback);
        detail.dataCallback = std::move(dataCallback);
        detail.userData = userData;
        return DoTransfer(detail);
    }

    // Logs that function was entered, for the inline function above: the logging macros stay out
    // of clients' sight.
    static void s_TraceEntry(const char* function, int line);
};

/// Makes handlers. A client hands one to the agent with each request; it may bring its own.
class [[gnu::visibility("default")]] ITransferHandlerFactory
{
public:
    /// Returns a handler that the caller owns. A transfer agent calls this on the worker thread,
    /// once per transfer, while it holds its own lock: an implementation must not call the agent,
    /// and should return soon, because no other request can begin, be cancelled or end meanwhile.
    /// Null fails the transfer, of which only the complete callback is called.
    virtual std::unique_ptr<ITransferHandler> Create() = 0;

    virtual ~ITransferHandlerFactory();
};

}  // namespace VORTAN_MW
