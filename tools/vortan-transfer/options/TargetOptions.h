#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "options/Arguments.h"

namespace VORTAN_TRANSFER {

// Where bodies and reports go.
class TargetOptions
{
public:
    // Adds them to the command line.
    explicit TargetOptions(CLI::App& app);

    // Sets the jobs, and the targets of the reports. Touches no file. Throws UsageError if one is
    // wrong, or two lead to the same place.
    void Apply(Arguments& arguments, std::vector<Source> sources) const;

private:
    void m_CheckFolder() const;
    std::vector<std::string> m_NamesOf(const std::vector<Source>& sources) const;
    std::string m_InFolder(const std::string& name) const;

    CLI::Option* const m_Output;
    CLI::Option* const m_RemoteName;
    CLI::Option* const m_Folder;
    CLI::Option* const m_Json;
    CLI::Option* const m_Trace;
    CLI::Option* const m_TracePlot;
};

}  // namespace VORTAN_TRANSFER
