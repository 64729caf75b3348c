#pragma once

#include <memory>

#include "ITransferHandler.h"

namespace VORTAN_MW {

/// Makes handlers that read a local file: url is its path, the whole file is the body, and the
/// three bytes 1, 2, 3 stand in for the header. The file is held in memory whole and delivered as
/// one chunk; a callback gets a copy, so a segmented transfer takes twice the file's size. What a
/// callback returns is ignored, and there is never an HTTP status.
class [[gnu::visibility("default")]] FileReaderFactory : public ITransferHandlerFactory
{
public:
    std::unique_ptr<ITransferHandler> Create() override;

    ~FileReaderFactory() override;
};

}  // namespace VORTAN_MW
