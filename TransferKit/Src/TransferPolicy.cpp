#include "TransferPolicy.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "PolicyData.h"

namespace VORTAN_MW {
namespace KIT {

TransferPolicy::TransferPolicy() : m_Data(std::make_unique<Data>()) {}
TransferPolicy::TransferPolicy(const TransferPolicy& other)
    : m_Data(std::make_unique<Data>(*other.m_Data))
{}
TransferPolicy& TransferPolicy::operator=(const TransferPolicy& other)
{
    Data copy(*other.m_Data);
    *m_Data = std::move(copy);
    return *this;
}
TransferPolicy::~TransferPolicy() = default;

TransferPolicy& TransferPolicy::SetConnecting(std::chrono::milliseconds limit)
{
    m_Data->connecting = limit;
    return *this;
}

TransferPolicy& TransferPolicy::SetSilence(std::chrono::milliseconds limit)
{
    m_Data->silence = limit;
    return *this;
}

TransferPolicy& TransferPolicy::SetAltogether(std::chrono::milliseconds limit)
{
    m_Data->altogether = limit;
    return *this;
}

TransferPolicy& TransferPolicy::SetLowestSpeed(std::uint64_t bytesPerSecond)
{
    m_Data->lowestSpeed = bytesPerSecond;
    return *this;
}

TransferPolicy& TransferPolicy::SetLongestBody(std::uint64_t bytes)
{
    m_Data->longestBody = bytes;
    return *this;
}

TransferPolicy& TransferPolicy::SetLongestHeader(std::uint64_t bytes)
{
    m_Data->longestHeader = bytes;
    return *this;
}

TransferPolicy& TransferPolicy::SetSchemes(std::vector<std::string> schemes)
{
    m_Data->schemes = std::move(schemes);
    return *this;
}

TransferPolicy& TransferPolicy::SetRedirects(std::uint32_t count)
{
    m_Data->redirects = count;
    return *this;
}

TransferPolicy& TransferPolicy::SetAttempts(std::uint32_t count)
{
    m_Data->attempts = count;
    return *this;
}

TransferPolicy& TransferPolicy::SetBackoff(std::chrono::milliseconds backoff)
{
    m_Data->backoff = backoff;
    return *this;
}

TransferPolicy& TransferPolicy::SetLongestBackoff(std::chrono::milliseconds longest)
{
    m_Data->longestBackoff = longest;
    return *this;
}

TransferPolicy& TransferPolicy::SetRetryBudget(std::uint32_t attempts)
{
    m_Data->retryBudget = attempts;
    return *this;
}

TransferPolicy& TransferPolicy::SetSeed(std::uint64_t seed)
{
    m_Data->seed = seed;
    return *this;
}

TransferPolicy& TransferPolicy::SetContinuation(bool allowed)
{
    m_Data->continuation = allowed;
    return *this;
}

TransferPolicy& TransferPolicy::SetAuthorityFile(std::string path)
{
    m_Data->authorityFile = std::move(path);
    return *this;
}

TransferPolicy& TransferPolicy::SetAuthorityFolder(std::string path)
{
    m_Data->authorityFolder = std::move(path);
    return *this;
}

TransferPolicy& TransferPolicy::SetPinnedKey(std::string key)
{
    m_Data->pinnedKey = std::move(key);
    return *this;
}

TransferPolicy& TransferPolicy::SetServerVerification(bool verify)
{
    m_Data->isServerVerified = verify;
    return *this;
}

TransferPolicy& TransferPolicy::SetClientCertificate(std::string certificateFile,
                                                     std::string keyFile)
{
    m_Data->certificateFile = std::move(certificateFile);
    m_Data->keyFile = std::move(keyFile);
    return *this;
}

TransferPolicy& TransferPolicy::SetLowestTlsVersion(TlsVersion version)
{
    m_Data->lowestTlsVersion = version;
    return *this;
}

namespace {

using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds Day = std::chrono::hours(24);

void Require(bool condition, const char* sentence)
{
    if (!condition) {
        throw std::invalid_argument(sentence);
    }
}

bool IsWithin(Milliseconds limit, Milliseconds longest)
{
    return limit.count() > 0 && limit <= longest;
}

bool IsScheme(const std::string& scheme)
{
    return scheme == "http" || scheme == "https";
}

void CheckTimes(const Policy& policy)
{
    Require(IsWithin(policy.connecting, Day),
            "Set the connecting limit to more than 0 and at most a day.");
    Require(IsWithin(policy.silence, Day),
            "Set the silence limit to more than 0 and at most a day.");
    Require(IsWithin(policy.altogether, 365 * Day),
            "Set the limit altogether to more than 0 and at most 365 days.");
    Require(policy.connecting <= policy.altogether,
            "The connecting limit must not exceed the limit altogether.");
    Require(policy.silence <= policy.altogether,
            "The silence limit must not exceed the limit altogether.");
}

void CheckAttempts(const Policy& policy)
{
    Require(policy.attempts > 0, "Allow at least one attempt.");
    Require(policy.backoff.count() >= 0, "The back-off must not be negative.");
    Require(IsWithin(policy.longestBackoff, Day),
            "Set the longest back-off to more than 0 and at most a day.");
    Require(policy.backoff <= policy.longestBackoff,
            "The back-off must not exceed the longest back-off.");
}

void CheckTls(const Policy& policy)
{
    const auto& schemes = policy.schemes;
    const bool isTls = std::find(schemes.begin(), schemes.end(), "https") != schemes.end();
    const bool isSet = !policy.authorityFile.empty() || !policy.authorityFolder.empty() ||
                       !policy.pinnedKey.empty() || !policy.certificateFile.empty();
    Require(isTls || !isSet,
            "Authorities, a pinned key or a client certificate need the scheme https.");
    Require(policy.certificateFile.empty() == policy.keyFile.empty(),
            "A client certificate needs both the certificate's file and the key's.");
    Require(policy.lowestTlsVersion == TlsVersion::Tls12 ||
                policy.lowestTlsVersion == TlsVersion::Tls13,
            "The lowest version of TLS must be Tls12 or Tls13.");
}

}  // namespace

void CheckPolicy(const Policy& policy)
{
    CheckTimes(policy);
    CheckAttempts(policy);
    Require(policy.longestHeader > 0, "Set the longest header to more than 0 bytes.");
    Require(!policy.schemes.empty(), "Allow at least one of the schemes http and https.");
    Require(std::all_of(policy.schemes.begin(), policy.schemes.end(), IsScheme),
            "The only schemes are http and https, in lower case.");
    CheckTls(policy);
}

}  // namespace KIT
}  // namespace VORTAN_MW
