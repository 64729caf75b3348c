#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "options/Arguments.h"

namespace VORTAN_TRANSFER {

// What is sent, when, and in which form the response is taken.
class RequestOptions
{
public:
    // Adds them to the command line.
    explicit RequestOptions(CLI::App& app);

    // Puts them into the request and what belongs to it. Reads the data, so call it last. Throws
    // UsageError if one is wrong.
    void Apply(Arguments& arguments) const;

    const CLI::Option* Data() const { return m_Data; }
    const CLI::Option* Upload() const { return m_Upload; }
    const CLI::Option* Include() const { return m_Include; }
    const CLI::Option* NoFail() const { return m_NoFail; }

private:
    using Configuration = VORTAN_MW::ITransferHandler::Configuration;

    void m_RefuseContradictions() const;
    Configuration::HttpMethod m_Method() const;
    void m_SetHeaders(Configuration& request) const;
    void m_SetDelays(Configuration& request) const;
    void m_SetMethodAndData(Arguments& arguments) const;

    CLI::Option* const m_MethodName;
    CLI::Option* const m_Head;
    CLI::Option* const m_Header;
    CLI::Option* const m_UserAgent;
    CLI::Option* const m_Data;
    CLI::Option* const m_Upload;
    CLI::Option* const m_Include;
    CLI::Option* const m_Segmented;
    CLI::Option* const m_Plain;
    CLI::Option* const m_RandomDelay;
    CLI::Option* const m_FixedDelay;
    CLI::Option* const m_NoFail;
};

}  // namespace VORTAN_TRANSFER
