#include "Sink.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace VORTAN_MW {
namespace KIT {

Sink::Sink(const ITransferHandler::TransferDetail& detail, PartFile* file)
    : m_Detail(detail), m_File(file)
{
    for (ITransferHandler::Bytes* const buffer : {detail.headerBuffer, detail.dataBuffer}) {
        if (buffer) {
            buffer->clear();
        }
    }
}

void Sink::Announce(std::uint64_t length)
{
    // A server that announces more than it sends gets no more than this.
    constexpr std::uint64_t most = std::uint64_t{64} * 1024 * 1024;
    if (!m_Detail.dataBuffer) {
        return;
    }
    try {
        m_Detail.dataBuffer->reserve(static_cast<std::size_t>(std::min(length, most)));
    } catch (const std::bad_alloc&) {
        // Whether there is room for what really arrives is seen when it does.
    }
}

bool Sink::DeliverHeader(const std::string& lines)
{
    if (m_File) {
        m_HeldHeader += lines;
        return !m_HasRefused;
    }
    return m_Deliver(reinterpret_cast<const std::uint8_t*>(lines.data()), lines.size(),
                     m_Detail.headerBuffer, m_Detail.headerCallback);
}

bool Sink::DeliverBody(const char* data, std::size_t length)
{
    m_Delivered += length;
    if (m_File) {
        return !m_HasRefused && m_File->Write(data, length);
    }
    return m_Deliver(reinterpret_cast<const std::uint8_t*>(data), length, m_Detail.dataBuffer,
                     m_Detail.dataCallback);
}

bool Sink::Flush()
{
    const std::string lines = std::move(m_HeldHeader);
    m_HeldHeader.clear();
    return lines.empty() || m_Deliver(reinterpret_cast<const std::uint8_t*>(lines.data()),
                                      lines.size(), m_Detail.headerBuffer, m_Detail.headerCallback);
}

void Sink::StartOver()
{
    m_Delivered = 0;
    m_HeldHeader.clear();
}

bool Sink::m_Deliver(const std::uint8_t* data, std::size_t length, ITransferHandler::Bytes* buffer,
                     const ITransferHandler::ChunkCallback& callback)
{
    if (m_HasRefused) {
        return false;
    }
    if (buffer) {
        buffer->insert(buffer->end(), data, data + length);
    }
    if (!callback) {
        return true;
    }
    auto chunk = std::make_unique<ITransferHandler::Bytes>(data, data + length);
    try {
        m_HasRefused = !callback(std::move(chunk), m_Detail.userData);
    } catch (...) {
        KeepException();
    }
    return !m_HasRefused;
}

void Sink::KeepException()
{
    m_HasRefused = true;
    if (!m_Exception) {
        m_Exception = std::current_exception();
    }
}

void Sink::RethrowIfAny() const
{
    if (m_Exception) {
        std::rethrow_exception(m_Exception);
    }
}

}  // namespace KIT
}  // namespace VORTAN_MW
