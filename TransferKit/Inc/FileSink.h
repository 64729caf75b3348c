#pragma once

#include <memory>
#include <string>

#include "ITransferAgentManager.h"

namespace VORTAN_MW {
namespace KIT {

/// Turns the body of a transfer into a file that is whole or not there. Until then it is written to
/// NAME.part beside the target, with NAME.part.meta, which says how a later transfer can go on with
/// it, even after a kill or a power cut. When the body is whole, and has the SHA-256 that was
/// given, it is synced to the disk, takes the name, and both files beside it are gone.
///
///     VORTAN_MW::KIT::FileSink sink("/var/lib/device/update.bin", sha256);
///     request->url = "https://example.org/update.bin";
///     request->handlerFactory = session.MakeFactory(options);
///     sink.AttachTo(*request);
///     agent->RequestTransfer(std::move(request));
///
/// A transfer of an HttpSession goes on with the part that an earlier one has left if it is of the
/// same URL and version. It fails as FileFailed, Busy or WrongHash for what concerns the file, and
/// within one chunk when the disk is full. Status 304 is a success and leaves the file alone;
/// another status outside 200 to 299 is a failure, failOnError or not.
///
/// The handlers of other factories always begin with the first byte, and fail without a category:
/// the log tells why. A handler that takes a broken body for a whole one needs the hash.
class [[gnu::visibility("default")]] FileSink
{
public:
    /// Touches no file yet. An existing target is replaced, a symbolic link too, by a file with its
    /// permissions. sha256: 64 hexadecimal digits; empty for any content.
    ///
    /// Throws std::invalid_argument, with one sentence, if the path is empty, its folder does not
    /// exist, the target is there and no file, or the hash is malformed; std::bad_alloc.
    explicit FileSink(const std::string& path, const std::string& sha256 = std::string());
    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;
    /// The request keeps what it needs.
    ~FileSink();

    /// Whether to go on with the part that an earlier transfer has left. Default: true. With false,
    /// the part is locked as well, and then replaced when the first response arrives. Call it
    /// before AttachTo; throws std::invalid_argument after it.
    FileSink& SetContinuation(bool allowed);
    /// Whether a response must tell where its body ends. Default: true, unless a hash is given: one
    /// that ends by closing the connection fails as InvalidResponse, because a broken connection
    /// looks the same. With false it makes a file. Call it before AttachTo; throws
    /// std::invalid_argument after it.
    FileSink& SetLengthRequired(bool required);

    /// Has the request's body written to the file, and to nothing else: a dataCallback gets no
    /// byte. Call it once, when the request has its factory, which is wrapped if no HttpSession has
    /// made it. If the request has neither a headerCallback nor a dataCallback, it gets a
    /// dataCallback that does nothing, because an agent demands one.
    ///
    /// The part is opened and locked when the transfer begins. Throws std::invalid_argument if the
    /// request has no factory or another sink, or if the sink is attached already; std::bad_alloc.
    void AttachTo(ITransferAgentManager::TransferConfiguration & request);

private:
    struct Data;

    std::unique_ptr<Data> m_Data;
};

}  // namespace KIT
}  // namespace VORTAN_MW
