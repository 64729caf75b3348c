#pragma once

#include <ITransferHandler.h>

#include <string>

#include "Source.h"

namespace VORTAN_TRANSFER {

// Whether an HTTP status tells of an error.
bool IsErrorStatus(long status);

// Why a transfer failed, in a few words, with the HTTP status if there is one. libraryError is what
// the library logged about it.
std::string FailureCause(const Source& source, const VORTAN_MW::ITransferHandler::Result& result,
                         const std::string& libraryError);

}  // namespace VORTAN_TRANSFER
