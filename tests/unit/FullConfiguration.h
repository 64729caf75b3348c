#pragma once

#include "ITransferHandler.h"

// A configuration with nothing left as it is by default.
VORTAN_MW::ITransferHandler::Configuration FullConfiguration();

// Expects every member to be the same. Those that are optional must be there.
void ExpectSame(const VORTAN_MW::ITransferHandler::Configuration& seen,
                const VORTAN_MW::ITransferHandler::Configuration& sent);
