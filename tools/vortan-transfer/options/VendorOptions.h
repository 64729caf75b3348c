#pragma once

#include <ITransferHandler.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "options/Handler.h"

namespace VORTAN_TRANSFER {

// The options that only the vendor handler understands.
class VendorOptions
{
public:
    // Adds them to the command line.
    explicit VendorOptions(CLI::App& app);

    // The resource that is asked of the maker's server, in a source's place, if there is one.
    std::optional<std::string> Resource() const;

    // Puts them into the request. Throws UsageError if one is wrong, or if there is one though the
    // requests go through another handler; given is the one that the user has named, if any.
    void Apply(VORTAN_MW::ITransferHandler::Configuration& request, const Handler* given) const;

private:
    CLI::Option* m_Add(CLI::Option* option);
    void m_SetAddress(VORTAN_MW::ITransferHandler::Configuration& request) const;

    struct ForwardedValue
    {
        CLI::Option* option;
        long VORTAN_MW::ITransferHandler::Configuration::*value;
    };

    std::vector<const CLI::Option*> m_All;
    CLI::Option* m_Resource;
    CLI::Option* m_Query;
    CLI::Option* m_HttpVersion;
    CLI::Option* m_SelfSigned;
    CLI::Option* m_Timeout;
    CLI::Option* m_Verbose;
    std::vector<ForwardedValue> m_Forwarded;
};

}  // namespace VORTAN_TRANSFER
