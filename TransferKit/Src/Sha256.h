#pragma once

#include <openssl/evp.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace VORTAN_MW {
namespace KIT {

using Digest = std::array<std::uint8_t, 32>;

// SHA-256 of bytes as they pass. Everything throws std::bad_alloc if libcrypto fails: it has no
// other reason to.
class Sha256
{
public:
    Sha256();

    void Update(const char* data, std::size_t length);
    // Call it once, last.
    Digest Finish();

private:
    struct Deleter
    {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };

    std::unique_ptr<EVP_MD_CTX, Deleter> m_Context;
};

// 64 hexadecimal digits, in lower case.
std::string HexOf(const Digest& digest);
// Nothing if text is not 64 hexadecimal digits of either case.
std::optional<Digest> ParseDigest(const std::string& text);

}  // namespace KIT
}  // namespace VORTAN_MW
