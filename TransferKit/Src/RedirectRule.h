#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ITransferHandler.h"
#include "PolicyData.h"
#include "Url.h"

namespace VORTAN_MW {
namespace KIT {

using Method = ITransferHandler::Configuration::HttpMethod;

// One request of a chain of redirects.
struct Hop
{
    Url url;
    Method method = Method::EhttpGet;
    bool hasBody = false;
    // The chain has left the origin it began at: nothing of the client's may be sent any more.
    bool isForeign = false;
    std::uint32_t redirects = 0;  // followed so far
};

// 301, 302, 303, 307 and 308.
bool IsRedirect(long status);

// The request that follows a redirect, or nothing if the policy refuses it. 303 turns everything
// but a HEAD into a GET without a body; the other statuses keep the method.
std::optional<Hop> Follow(const Hop& hop, long status, const std::string& location,
                          const Policy& policy);

bool IsSchemeAllowed(const Url& url, const Policy& policy);

}  // namespace KIT
}  // namespace VORTAN_MW
