#pragma once

#include <string>

#include "ITransferHandler.h"

namespace VORTAN_MW {

// Serves a request from the local file system: url is the path, the whole file the body.
class FileReader : public ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail& detail) const override;

private:
    bool m_CheckFileExists(const std::string& path) const;
};

}  // namespace VORTAN_MW
