#include "transfer/WatchedFactory.h"

#include <utility>

namespace VORTAN_TRANSFER {

namespace {

class WatchedHandler : public VORTAN_MW::ITransferHandler
{
public:
    WatchedHandler(std::unique_ptr<ITransferHandler> handler, WatchedFactory::Watch watch)
        : m_Handler(std::move(handler)), m_Watch(std::move(watch))
    {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        m_Watch.onBegin();
        Result result = m_Handler->DoTransfer(detail);
        if (detail.headerBuffer) {
            m_Watch.onHeader(*detail.headerBuffer);
        }
        return result;
    }

private:
    const std::unique_ptr<ITransferHandler> m_Handler;
    const WatchedFactory::Watch m_Watch;
};

}  // namespace

WatchedFactory::WatchedFactory(std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory,
                               Watch watch)
    : m_Factory(std::move(factory)), m_Watch(std::move(watch))
{}

std::unique_ptr<VORTAN_MW::ITransferHandler> WatchedFactory::Create()
{
    return std::make_unique<WatchedHandler>(m_Factory->Create(), m_Watch);
}

}  // namespace VORTAN_TRANSFER
