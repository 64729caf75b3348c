#include "RedirectRule.h"

#include <algorithm>

namespace VORTAN_MW {
namespace KIT {

bool IsRedirect(long status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool IsSchemeAllowed(const Url& url, const Policy& policy)
{
    return std::find(policy.schemes.begin(), policy.schemes.end(), url.scheme) !=
           policy.schemes.end();
}

std::optional<Hop> Follow(const Hop& hop, long status, const std::string& location,
                          const Policy& policy)
{
    if (hop.redirects >= policy.redirects || HasControlCharacter(location)) {
        return std::nullopt;
    }
    std::optional<Url> target = hop.url.Resolve(location);
    if (!target || target->hasCredentials || !IsSchemeAllowed(*target, policy)) {
        return std::nullopt;
    }
    if (hop.url.scheme == "https" && target->scheme != "https") {
        return std::nullopt;
    }
    Hop next = hop;
    ++next.redirects;
    next.isForeign = hop.isForeign || target->Origin() != hop.url.Origin();
    next.url = std::move(*target);
    if (status == 303 && hop.method != Method::EhttpHead) {
        next.method = Method::EhttpGet;
        next.hasBody = false;
    }
    if (next.isForeign && next.hasBody) {
        return std::nullopt;
    }
    return next;
}

}  // namespace KIT
}  // namespace VORTAN_MW
