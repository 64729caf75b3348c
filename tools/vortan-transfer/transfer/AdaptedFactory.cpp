#include "transfer/AdaptedFactory.h"

#include <utility>

#include "report/Outcome.h"

namespace VORTAN_TRANSFER {

namespace {

class AdaptedHandler : public VORTAN_MW::ITransferHandler
{
public:
    AdaptedHandler(std::unique_ptr<ITransferHandler> handler, AdaptedFactory::Adaptation adaptation)
        : m_Handler(std::move(handler)), m_Adaptation(std::move(adaptation))
    {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        m_Adaptation.onBegin();
        Result result = detail.dataCallback ? m_DoInChunks(detail) : m_Handler->DoTransfer(detail);
        const long status = result.httpCode ? *result.httpCode : 0;
        result.success = m_Adaptation.onEnd(status) && result.success;
        if (m_Adaptation.hidesStatus && status != HttpNotModified) {
            result.httpCode.reset();
        }
        return result;
    }

private:
    using BytesPtr = std::unique_ptr<Bytes>;

    Result m_DoInChunks(const TransferDetail& detail) const
    {
        bool hasBodyBegun = false;
        TransferDetail own(detail);
        if (m_Adaptation.onHeader) {
            own.headerBuffer = nullptr;
            own.headerCallback = [&](BytesPtr lines, void* data) {
                // What follows the body are trailers.
                return !lines || hasBodyBegun || m_TakeHeader(detail, std::move(lines), data);
            };
        }
        own.dataCallback = [&](BytesPtr bytes, void* data) {
            hasBodyBegun = hasBodyBegun || bytes;
            const bool isTaken = !bytes || !m_Adaptation.onBody || m_Adaptation.onBody(*bytes);
            return isTaken && detail.dataCallback(std::move(bytes), data);
        };
        return m_Handler->DoTransfer(own);
    }

    bool m_TakeHeader(const TransferDetail& detail, BytesPtr lines, void* data) const
    {
        m_Adaptation.onHeader(*lines);
        if (m_Adaptation.putsHeaderIntoBody) {
            return detail.dataCallback(std::move(lines), data);
        }
        return !detail.headerCallback || detail.headerCallback(std::move(lines), data);
    }

    const std::unique_ptr<ITransferHandler> m_Handler;
    const AdaptedFactory::Adaptation m_Adaptation;
};

}  // namespace

AdaptedFactory::AdaptedFactory(std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory,
                               Adaptation adaptation)
    : m_Factory(std::move(factory)), m_Adaptation(std::move(adaptation))
{}

std::unique_ptr<VORTAN_MW::ITransferHandler> AdaptedFactory::Create()
{
    return std::make_unique<AdaptedHandler>(m_Factory->Create(), m_Adaptation);
}

}  // namespace VORTAN_TRANSFER
