#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "ITransferHandler.h"
#include "PartFile.h"

namespace VORTAN_MW {
namespace KIT {

// Where header and body go: the client's buffers and callbacks. With a file the body goes there
// alone, and the header is held back until the transfer has kept one response. No exception of a
// callback leaves it, because libcurl's frames may be in between: the first is kept.
class Sink
{
public:
    // Empties the buffers. file: null without one.
    explicit Sink(const ITransferHandler::TransferDetail& detail, PartFile* file = nullptr);

    bool WantsHeader() const { return m_Detail.headerBuffer || m_Detail.headerCallback; }
    bool WantsBody() const { return m_File || m_Detail.dataBuffer || m_Detail.dataCallback; }

    // The length that the server announced, for a buffer to grow to at once.
    void Announce(std::uint64_t length);

    // False if the client refuses. Nothing that is not wanted is delivered.
    bool DeliverHeader(const std::string& lines);
    bool DeliverBody(const char* data, std::size_t length);

    // Delivers the header that was held back; false if the client refuses.
    bool Flush();

    // A file has so many bytes already.
    void Resume(std::uint64_t delivered) { m_Delivered = delivered; }
    // Another response takes the place of what a file has received so far.
    void StartOver();

    // Bytes of the body that the client has, or would have if it wanted them.
    std::uint64_t Delivered() const { return m_Delivered; }
    bool HasRefused() const { return m_HasRefused; }
    void RethrowIfAny() const;
    // Keeps the current exception for RethrowIfAny, and refuses everything from now on.
    void KeepException();

private:
    bool m_Deliver(const std::uint8_t* data, std::size_t length, ITransferHandler::Bytes* buffer,
                   const ITransferHandler::ChunkCallback& callback);

    const ITransferHandler::TransferDetail& m_Detail;
    PartFile* const m_File;
    std::string m_HeldHeader;
    std::uint64_t m_Delivered = 0;
    bool m_HasRefused = false;
    std::exception_ptr m_Exception;
};

}  // namespace KIT
}  // namespace VORTAN_MW
