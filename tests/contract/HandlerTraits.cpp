#include "HandlerTraits.h"

#include <algorithm>

using VORTAN_MW::ITransferHandler;

namespace {

using Bytes = ITransferHandler::Bytes;

// Returns false if the callback refused the chunk.
bool Deliver(const Bytes& chunk, Bytes* buffer, const ITransferHandler::ChunkCallback& callback,
             void* userData)
{
    if (buffer) {
        buffer->insert(buffer->end(), chunk.begin(), chunk.end());
    }
    return !callback || callback(std::make_unique<Bytes>(chunk), userData);
}

bool DeliverBody(const Bytes& body, const ITransferHandler::TransferDetail& detail)
{
    constexpr std::size_t chunkLength = 1000;
    for (std::size_t at = 0; at < body.size(); at += chunkLength) {
        const auto first = body.begin() + static_cast<std::ptrdiff_t>(at);
        const std::size_t length = std::min(chunkLength, body.size() - at);
        const Bytes chunk(first, first + static_cast<std::ptrdiff_t>(length));
        if (!Deliver(chunk, detail.dataBuffer, detail.dataCallback, detail.userData)) {
            return false;
        }
    }
    return true;
}

void Empty(Bytes* buffer)
{
    if (buffer) {
        buffer->clear();
    }
}

VORTAN_MW::KIT::HttpSession* s_Session = nullptr;

}  // namespace

KitTraits::KitTraits() : m_Session(VORTAN_MW::KIT::TransferPolicy().SetSchemes({"http"}))
{
    s_Session = &m_Session;
}

KitTraits::~KitTraits()
{
    s_Session = nullptr;
}

KitHandler::KitHandler() : m_Factory(s_Session->MakeFactory()), m_Handler(m_Factory->Create()) {}

ITransferHandler::Result KitHandler::DoTransfer(const TransferDetail& detail) const
{
    return m_Handler->DoTransfer(detail);
}

ITransferHandler::Result FakeHandler::DoTransfer(const TransferDetail& detail) const
{
    const std::string scheme = "fake:";
    const Bytes header = {'h', 'e', 'a', 'd', 'e', 'r'};
    Empty(detail.headerBuffer);
    Empty(detail.dataBuffer);
    Result result;
    result.httpCode = std::make_unique<long>(404);
    if (detail.url.rfind(scheme, 0) == 0) {
        *result.httpCode = 200;
        result.success =
            Deliver(header, detail.headerBuffer, detail.headerCallback, detail.userData) &&
            DeliverBody(IndexedBytes(std::stoul(detail.url.substr(scheme.size()))), detail);
    }
    return result;
}
