#pragma once

#include <memory>
#include <string>

#include "ITransferHandler.h"
#include "PartFile.h"

namespace VORTAN_MW {
namespace KIT {

// Why a transfer's file failed.
struct FileFault
{
    Category category = Category::Success;
    std::string detail;
};

// Has the handlers of another factory write to a file.
class FactoryToFile : public ITransferHandlerFactory
{
public:
    FactoryToFile(std::unique_ptr<ITransferHandlerFactory> inner,
                  std::shared_ptr<const FileTarget> target)
        : m_Inner(std::move(inner)), m_Target(std::move(target))
    {}

    std::unique_ptr<ITransferHandler> Create() override;

    // What failed in the last transfer, once it has ended. It outlives the factory.
    std::shared_ptr<const FileFault> LastFault() const { return m_Fault; }

private:
    const std::unique_ptr<ITransferHandlerFactory> m_Inner;
    const std::shared_ptr<const FileTarget> m_Target;
    const std::shared_ptr<FileFault> m_Fault = std::make_shared<FileFault>();
};

}  // namespace KIT
}  // namespace VORTAN_MW
