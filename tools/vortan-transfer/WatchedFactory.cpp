#include "WatchedFactory.h"

#include <utility>

namespace VORTAN_TRANSFER {

namespace {

class WatchedHandler : public VORTAN_MW::ITransferHandler
{
public:
    WatchedHandler(std::unique_ptr<ITransferHandler> handler, std::function<void()> onBegin)
        : m_Handler(std::move(handler)), m_OnBegin(std::move(onBegin))
    {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        m_OnBegin();
        return m_Handler->DoTransfer(detail);
    }

private:
    const std::unique_ptr<ITransferHandler> m_Handler;
    const std::function<void()> m_OnBegin;
};

}  // namespace

WatchedFactory::WatchedFactory(std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory,
                               std::function<void()> onBegin)
    : m_Factory(std::move(factory)), m_OnBegin(std::move(onBegin))
{}

std::unique_ptr<VORTAN_MW::ITransferHandler> WatchedFactory::Create()
{
    return std::make_unique<WatchedHandler>(m_Factory->Create(), m_OnBegin);
}

}  // namespace VORTAN_TRANSFER
