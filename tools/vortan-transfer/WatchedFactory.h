#pragma once

#include <ITransferHandler.h>

#include <functional>
#include <memory>

namespace VORTAN_TRANSFER {

// Makes another factory's handlers, each of which tells when its transfer begins: that is when the
// library has waited for as long as it was asked to.
class WatchedFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    // onBegin is called on the worker thread, without the library's lock.
    WatchedFactory(std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory,
                   std::function<void()> onBegin);

    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override;

private:
    const std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> m_Factory;
    const std::function<void()> m_OnBegin;
};

}  // namespace VORTAN_TRANSFER
