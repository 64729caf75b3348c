#pragma once

#include <optional>
#include <string>

#include "ITransferHandler.h"
#include "OptionsData.h"
#include "PolicyData.h"
#include "Url.h"

namespace VORTAN_MW {
namespace KIT {

// Says in a phrase why a request must not be sent; empty if it may. The phrase quotes nothing of
// the request. url is what Url::Parse makes of the request's.
std::string ReasonToRefuse(const ITransferHandler::Configuration& request,
                           const std::optional<Url>& url, const TransferOptionsData& options,
                           const Policy& policy);

// The same for a request whose body goes to a file.
std::string ReasonToWriteNoFile(const ITransferHandler::Configuration& request);

// Whether one of the client's headers has this name.
bool HasHeader(const ITransferHandler::Configuration& request, const std::string& name);

}  // namespace KIT
}  // namespace VORTAN_MW
