#pragma once

#include <CLI/CLI.hpp>
#include <vector>

#include "options/Arguments.h"
#include "options/RequestOptions.h"

namespace VORTAN_TRANSFER {

// How a file is kept up to date, and what it must contain.
class DownloadOptions
{
public:
    // Adds them to the command line.
    explicit DownloadOptions(CLI::App& app);

    // Needs the jobs and the request. Throws UsageError if one is wrong or does not go with them.
    void Apply(Arguments& arguments, const RequestOptions& request) const;

    std::vector<const CLI::Option*> All() const;
    const CLI::Option* HashFile() const { return m_HashFile; }

private:
    void m_RefuseContradictions(const Arguments& arguments, const RequestOptions& request) const;
    void m_SetHashes(std::vector<Job>& jobs) const;

    CLI::Option* const m_Continue;
    CLI::Option* const m_IfChanged;
    CLI::Option* const m_Hash;
    CLI::Option* const m_HashFile;
};

}  // namespace VORTAN_TRANSFER
