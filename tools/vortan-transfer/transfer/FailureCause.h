#pragma once

#include <ITransferHandler.h>

#include <string>

#include "base/ExitStatus.h"
#include "options/Source.h"

namespace VORTAN_TRANSFER {

// Whether an HTTP status tells of an error.
bool IsErrorStatus(long status);

struct Failure
{
    ExitStatus status;
    std::string cause;  // in a few words, with the HTTP status if there is one
};

// Why a transfer failed. libraryError is what the library logged about it.
Failure FailureOf(const Source& source, const VORTAN_MW::ITransferHandler::Result& result,
                  const std::string& libraryError);

}  // namespace VORTAN_TRANSFER
