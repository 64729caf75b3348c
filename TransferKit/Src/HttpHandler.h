#pragma once

#include <memory>
#include <string>
#include <utility>

#include "ITransferHandler.h"
#include "OptionsData.h"
#include "SessionCore.h"
#include "StopSignal.h"
#include "Transfer.h"

namespace VORTAN_MW {
namespace KIT {

// What a factory and its handlers know of their request.
struct HandlerContext
{
    std::shared_ptr<SessionCore> core;
    TransferOptionsData options;
    TransferFiles files;
    StopSource stop;
};

class HttpHandlerFactory : public ITransferHandlerFactory
{
public:
    HttpHandlerFactory(std::shared_ptr<SessionCore> core, TransferOptionsData options);
    HttpHandlerFactory(const HttpHandlerFactory&) = delete;
    HttpHandlerFactory& operator=(const HttpHandlerFactory&) = delete;
    // Stops the transfers of its handlers.
    ~HttpHandlerFactory() override;

    std::unique_ptr<ITransferHandler> Create() override;

    const std::shared_ptr<HandlerContext>& Context() const { return m_Context; }
    bool IsOf(const SessionCore& core) const { return m_Context->core.get() == &core; }
    // For the handlers that are made from now on.
    void SetUpload(const std::string& path) { m_Context->files.uploadPath = path; }
    bool HasTarget() const { return m_Context->files.target != nullptr; }
    void SetTarget(std::shared_ptr<const FileTarget> target)
    {
        m_Context->files.target = std::move(target);
    }

private:
    const std::shared_ptr<HandlerContext> m_Context;
};

}  // namespace KIT
}  // namespace VORTAN_MW
