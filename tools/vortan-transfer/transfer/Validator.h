#pragma once

#include <ITransferHandler.h>

#include <string>

#include "transfer/ResponseHeader.h"

namespace VORTAN_TRANSFER {

// What a server said of the version that a file was downloaded from. It is kept beside the file, as
// FILE.validator, so that a later run asks only for what has changed since.

// Makes the request ask so, if the file is as it was downloaded from this URL. A condition of the
// user's own has precedence.
void AskIfChanged(VORTAN_MW::ITransferHandler::Configuration& request, const std::string& url,
                  const std::string& file);

// The file was just downloaded. Throws OutputError.
void KeepValidator(const ResponseHeader& header, const std::string& url, const std::string& file);

}  // namespace VORTAN_TRANSFER
