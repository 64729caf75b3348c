#pragma once

#include <ITransferHandler.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace VORTAN_TRANSFER {

// One way to fetch a source.
struct Handler
{
    // As --handler calls it.
    std::string name;
    // The schemes that choose it, in lower case; an empty one stands for a path. With none, only
    // --handler does.
    std::vector<std::string> schemes;
    // It has methods, sends data and receives header lines.
    bool speaksHttp;
    // Null for the session of the transfer kit, which makes the factories of its requests.
    std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> (*makeFactory)();

    bool IsSession() const { return makeFactory == nullptr; }
};

// Every handler that there is.
const std::vector<Handler>& Handlers();

// Their names, for a person to read.
std::string HandlerNames();

// Throw UsageError, with all that are known, if there is none.
const Handler& HandlerByName(std::string_view name);
const Handler& HandlerByScheme(std::string_view scheme);

}  // namespace VORTAN_TRANSFER
