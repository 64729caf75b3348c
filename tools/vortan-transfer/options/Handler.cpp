#include "options/Handler.h"

#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <QXCurlEasyHandlerFactory.h>

#include <algorithm>

#include "base/Text.h"
#include "base/UsageError.h"

namespace VORTAN_TRANSFER {

namespace {

template <typename Factory>
std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> MakeFactory()
{
    return std::make_unique<Factory>();
}

void AppendToList(std::string& list, const std::string& item)
{
    list += list.empty() ? item : ", " + item;
}

std::string KnownSchemes()
{
    std::string schemes;
    for (const Handler& handler : Handlers()) {
        for (const std::string& scheme : handler.schemes) {
            if (!scheme.empty()) {
                AppendToList(schemes, scheme);
            }
        }
    }
    return schemes;
}

}  // namespace

const std::vector<Handler>& Handlers()
{
    static const std::vector<Handler> handlers = {
        {"session", {"http", "https"}, true, nullptr},
        {"curl", {}, true, &MakeFactory<VORTAN_MW::CurlEasyHandlerFactory>},
        {"file", {"file", ""}, false, &MakeFactory<VORTAN_MW::FileReaderFactory>},
        {"vendor", {}, true, &MakeFactory<VORTAN_MW::QXCurlEasyHandlerFactory>},
    };
    return handlers;
}

std::string HandlerNames()
{
    std::string names;
    for (const Handler& handler : Handlers()) {
        AppendToList(names, handler.name);
    }
    return names;
}

const Handler& HandlerByName(std::string_view name)
{
    for (const Handler& handler : Handlers()) {
        if (handler.name == name) {
            return handler;
        }
    }
    throw UsageError("--handler: must be one of " + HandlerNames() + ", not " + Quoted(name));
}

const Handler& HandlerByScheme(std::string_view scheme)
{
    for (const Handler& handler : Handlers()) {
        const auto& schemes = handler.schemes;
        if (std::find(schemes.begin(), schemes.end(), scheme) != schemes.end()) {
            return handler;
        }
    }
    throw UsageError("unknown scheme " + Quoted(scheme) + ", known are " + KnownSchemes() +
                     " (begin the path of a file with ./ or / if it has a colon)");
}

}  // namespace VORTAN_TRANSFER
