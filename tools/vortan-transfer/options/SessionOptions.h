#pragma once

#include <CLI/CLI.hpp>
#include <vector>

#include "options/Arguments.h"

namespace VORTAN_TRANSFER {

// Limits, attempts and security of what the session transfers.
class SessionOptions
{
public:
    // Adds them to the command line.
    explicit SessionOptions(CLI::App& app);

    // Puts them into the policy and the credentials. Throws UsageError if one is wrong.
    void Apply(Arguments& arguments) const;

    const std::vector<const CLI::Option*>& All() const { return m_All; }

private:
    using TransferPolicy = VORTAN_MW::KIT::TransferPolicy;

    CLI::Option* m_Add(CLI::Option* option);
    void m_SetTimes(TransferPolicy& policy) const;
    void m_SetAttempts(TransferPolicy& policy) const;
    void m_SetBounds(TransferPolicy& policy) const;
    void m_SetAuthorities(TransferPolicy& policy) const;
    void m_SetCertificate(TransferPolicy& policy) const;

    std::vector<const CLI::Option*> m_All;
    CLI::Option* const m_ConnectTimeout;
    CLI::Option* const m_MaxTime;
    CLI::Option* const m_Silence;
    CLI::Option* const m_Retry;
    CLI::Option* const m_RetryDelay;
    CLI::Option* const m_MaxRedirects;
    CLI::Option* const m_MaxFileSize;
    CLI::Option* const m_AuthorityFile;
    CLI::Option* const m_AuthorityFolder;
    CLI::Option* const m_Insecure;
    CLI::Option* const m_Certificate;
    CLI::Option* const m_Key;
    CLI::Option* const m_User;
};

}  // namespace VORTAN_TRANSFER
