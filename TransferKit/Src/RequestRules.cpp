#include "RequestRules.h"

#include <strings.h>

#include <algorithm>

#include "RedirectRule.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// A name is what RFC 9110 calls a token.
bool IsToken(const std::string& name)
{
    constexpr const char* tokens =
        "!#$%&'*+-.^_`|~0123456789"
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    return !name.empty() && name.find_first_not_of(tokens) == std::string::npos;
}

// A tab is an ordinary blank in a value.
bool IsValue(const std::string& value)
{
    return std::none_of(value.begin(), value.end(),
                        [](unsigned char c) { return (c < 32 && c != '\t') || c == 127; });
}

bool IsNamed(const std::string& name, const char* wanted)
{
    return strcasecmp(name.c_str(), wanted) == 0;
}

std::string ReasonInUrl(const std::string& text, const std::optional<Url>& url,
                        const Policy& policy)
{
    if (HasControlCharacter(text)) {
        return "its URL contains a control character";
    }
    if (!url) {
        return "its URL is malformed";
    }
    if (url->hasCredentials) {
        return "its URL contains credentials; give them apart from it";
    }
    return IsSchemeAllowed(*url, policy) ? "" : "the policy does not allow the scheme of its URL";
}

std::string ReasonInHeaders(const ITransferHandler::Configuration& request)
{
    for (const auto& [name, value] : request.headers) {
        if (!IsToken(name)) {
            return "a header's name is no token";
        }
        if (!IsValue(value)) {
            return "a header's value contains a control character";
        }
        // The kit frames the body, and a second frame would be read differently by others.
        if (IsNamed(name, "Content-Length") || IsNamed(name, "Transfer-Encoding")) {
            return "Content-Length and Transfer-Encoding are the kit's to set";
        }
    }
    return "";
}

}  // namespace

bool HasHeader(const ITransferHandler::Configuration& request, const std::string& name)
{
    return std::any_of(request.headers.begin(), request.headers.end(),
                       [&name](const auto& header) { return IsNamed(header.first, name.c_str()); });
}

std::string ReasonToRefuse(const ITransferHandler::Configuration& request,
                           const std::optional<Url>& url, const TransferOptionsData& options,
                           const Policy& policy)
{
    std::string reason = ReasonInUrl(request.url, url, policy);
    if (reason.empty()) {
        reason = ReasonInHeaders(request);
    }
    if (reason.empty() && options.user.find(':') != std::string::npos) {
        reason = "a user's name must not contain a colon";
    }
    if (reason.empty() &&
        (HasControlCharacter(options.user) || HasControlCharacter(options.password))) {
        reason = "its credentials contain a control character";
    }
    return reason;
}

std::string ReasonToWriteNoFile(const ITransferHandler::Configuration& request)
{
    if (request.method == Method::EhttpHead) {
        return "a HEAD has no body to write to a file";
    }
    const bool hasRange = HasHeader(request, "Range") || HasHeader(request, "If-Range");
    return hasRange ? "a file is not made of a range" : "";
}

}  // namespace KIT
}  // namespace VORTAN_MW
