#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace VORTAN_MW {
namespace KIT {

/// The oldest version of TLS that a transfer may use. The numbers are part of the interface.
enum class TlsVersion : std::uint32_t
{
    Tls12 = 12,  ///< TLS 1.2
    Tls13 = 13,  ///< TLS 1.3
};

/// What the transfers of a session may take, and where they may go. Every value has a default that
/// suits a device on the Internet; a client sets what differs:
///
///     VORTAN_MW::KIT::TransferPolicy policy;
///     policy.SetAltogether(std::chrono::minutes(10))
///         .SetLongestBody(64 * 1024 * 1024)
///         .SetAuthorityFile("/etc/device/authorities.pem");
///     VORTAN_MW::KIT::HttpSession session(policy);
///
/// A plain value: copying copies everything. One thread at a time may use an object. Setters check
/// nothing; HttpSession's constructor checks the policy as a whole. They throw std::bad_alloc.
class [[gnu::visibility("default")]] TransferPolicy
{
public:
    TransferPolicy();
    /// Copies every value. Throws std::bad_alloc.
    TransferPolicy(const TransferPolicy& other);
    /// Like the copy constructor. If it throws, nothing has changed.
    TransferPolicy& operator=(const TransferPolicy& other);
    ~TransferPolicy();

    /// Time for each connection: name look-up, TCP and TLS handshakes together. Default: 10 s.
    /// More than 0, at most a day.
    TransferPolicy& SetConnecting(std::chrono::milliseconds limit);
    /// An attempt fails when no byte has moved in either direction for this long after the
    /// connection was made. Time spent in the client's callbacks does not count. Default: 30 s.
    /// More than 0, at most a day.
    TransferPolicy& SetSilence(std::chrono::milliseconds limit);
    /// Time for a transfer with all its attempts, redirects and waits. Default: 1 h. More than 0,
    /// at most 365 days.
    TransferPolicy& SetAltogether(std::chrono::milliseconds limit);
    /// An attempt fails when it moves fewer bytes per second than this, averaged over the time
    /// since its connection was made; checked once the silence limit has passed. Default: 0, which
    /// allows any speed.
    TransferPolicy& SetLowestSpeed(std::uint64_t bytesPerSecond);

    /// Bytes of a response's body, after decoding. A longer one fails the transfer, before its
    /// first byte where the server announces the length. Default: 0, which allows any length; a
    /// plain transfer holds its body in memory, so set this there.
    TransferPolicy& SetLongestBody(std::uint64_t bytes);
    /// Bytes of all header lines of one attempt: of 1xx responses, redirects, the response and its
    /// trailers. Default: 262144. More than 0. libcurl may have a bound of its own below it.
    TransferPolicy& SetLongestHeader(std::uint64_t bytes);
    /// Schemes of URLs and of redirect targets, out of "http" and "https". Default: only "https".
    /// A redirect never leads from https to http, even if both are allowed.
    TransferPolicy& SetSchemes(std::vector<std::string> schemes);
    /// How many redirects one attempt may follow; 0 refuses all. Default: 10.
    TransferPolicy& SetRedirects(std::uint32_t count);

    /// How many attempts a transfer has, the first included. An attempt that delivered a byte of
    /// the body is not counted. Default: 5. 1 disables trying again; more than 0.
    TransferPolicy& SetAttempts(std::uint32_t count);
    /// The n-th wait before another attempt is a random time between 0 and backoff * 2^(n-1), and
    /// at most the longest back-off. Default: 500 ms.
    TransferPolicy& SetBackoff(std::chrono::milliseconds backoff);
    /// Upper bound of a wait. A server that asks for a longer one (Retry-After) ends the transfer.
    /// Default: 60 s. More than 0, at least the back-off, at most a day.
    TransferPolicy& SetLongestBackoff(std::chrono::milliseconds longest);
    /// How many further attempts all transfers of the session have together. Each takes one; each
    /// transfer that succeeds gives one back, and so does the passing of each longest back-off.
    /// Default: 20.
    TransferPolicy& SetRetryBudget(std::uint32_t attempts);
    /// Seed of the generator that draws the waits. Without one the system's random numbers are
    /// used. For tests: devices with the same seed wait for the same times.
    TransferPolicy& SetSeed(std::uint64_t seed);
    /// Whether a GET whose body broke off goes on with the rest. It then asks for the body without
    /// content encoding, because a part of an encoded body cannot be continued. Default: true.
    /// With false, gzip and deflate are asked for and decoded.
    TransferPolicy& SetContinuation(bool allowed);

    /// PEM file with the certificate authorities to trust. Without a file and a folder these are
    /// the ones that libcurl was built to trust. Read once.
    TransferPolicy& SetAuthorityFile(std::string path);
    /// Folder of such files, under the names that "openssl rehash" gives them. Each is read when it
    /// is first needed.
    TransferPolicy& SetAuthorityFolder(std::string path);
    /// The server's public key, in addition to its certificate: a PEM or DER file, or "sha256//"
    /// and the key's base64 hash, several joined with ";". Empty: any key. It applies to the origin
    /// of the transfer's URL, not to where a redirect to another origin leads.
    TransferPolicy& SetPinnedKey(std::string key);
    /// Whether the server's certificate must come from an authority and be for its name. Default:
    /// true. false accepts any certificate, which anybody on the way can present: for testing only.
    /// A pinned key is compared nevertheless. The session's constructor logs a warning.
    TransferPolicy& SetServerVerification(bool verify);
    /// PEM files with the client's certificate chain and its private key, which must not have a
    /// password. They are shown to the origin of the transfer's URL only.
    TransferPolicy& SetClientCertificate(std::string certificateFile, std::string keyFile);
    /// Default: TlsVersion::Tls12.
    TransferPolicy& SetLowestTlsVersion(TlsVersion version);

private:
    friend class PolicyAccess;
    struct Data;

    std::unique_ptr<Data> m_Data;
};

}  // namespace KIT
}  // namespace VORTAN_MW
