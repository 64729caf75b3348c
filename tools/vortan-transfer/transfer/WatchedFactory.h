#pragma once

#include <ITransferHandler.h>

#include <functional>
#include <memory>

namespace VORTAN_TRANSFER {

// Makes another factory's handlers, each of which tells of its transfer what the agent does not.
class WatchedFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    // Called on the worker thread, without the library's lock.
    struct Watch
    {
        // The library has waited for as long as it was asked to.
        std::function<void()> onBegin;
        // What a plain transfer has received of its header: of one that fails, nobody else gets it.
        std::function<void(const VORTAN_MW::ITransferHandler::Bytes&)> onHeader;
    };

    WatchedFactory(std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory, Watch watch);

    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override;

private:
    const std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> m_Factory;
    const Watch m_Watch;
};

}  // namespace VORTAN_TRANSFER
