#pragma once

#include <cstdint>
#include <optional>

#include "TransferPolicy.h"

namespace VORTAN_MW {
namespace KIT {

struct TransferPolicy::Data
{
    std::chrono::milliseconds connecting = std::chrono::seconds(10);
    std::chrono::milliseconds silence = std::chrono::seconds(30);
    std::chrono::milliseconds altogether = std::chrono::hours(1);
    std::uint64_t lowestSpeed = 0;
    std::uint64_t longestBody = 0;
    std::uint64_t longestHeader = 262144;
    std::vector<std::string> schemes = {"https"};
    std::uint32_t redirects = 10;
    std::uint32_t attempts = 5;
    std::chrono::milliseconds backoff = std::chrono::milliseconds(500);
    std::chrono::milliseconds longestBackoff = std::chrono::seconds(60);
    std::uint32_t retryBudget = 20;
    std::optional<std::uint64_t> seed;
    bool continuation = true;
    std::string authorityFile;
    std::string authorityFolder;
    std::string pinnedKey;
    bool isServerVerified = true;
    std::string certificateFile;
    std::string keyFile;
    TlsVersion lowestTlsVersion = TlsVersion::Tls12;
};

// What the kit itself sees of a policy.
class PolicyAccess
{
public:
    using Data = TransferPolicy::Data;

    static const Data& Get(const TransferPolicy& policy) { return *policy.m_Data; }
};

using Policy = PolicyAccess::Data;

// Throws std::invalid_argument, with one sentence, if the policy contradicts itself.
void CheckPolicy(const Policy& policy);

}  // namespace KIT
}  // namespace VORTAN_MW
