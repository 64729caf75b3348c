#pragma once

#include <memory>
#include <string>

#include "TransferObserver.h"

namespace VORTAN_MW {
namespace KIT {

// The contents of TransferOptions.
struct TransferOptionsData
{
    std::shared_ptr<ITransferObserver> observer;
    bool hasCredentials = false;
    std::string user;
    std::string password;
    bool isPostRepeatable = false;
};

}  // namespace KIT
}  // namespace VORTAN_MW
