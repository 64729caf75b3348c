#pragma once

#include <ITransferAgentManager.h>

#include <memory>

#include "transfer/Transfer.h"

namespace VORTAN_TRANSFER {

// The request that the queue is to perform for a transfer. Its factory and callbacks keep the
// transfer alive. Throws OutputError, and std::invalid_argument if the kit refuses it.
std::unique_ptr<VORTAN_MW::ITransferAgentManager::TransferConfiguration> MakeTransferRequest(
    const std::shared_ptr<Transfer>& transfer);

}  // namespace VORTAN_TRANSFER
