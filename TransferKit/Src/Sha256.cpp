#include "Sha256.h"

#include <cstring>
#include <new>

namespace VORTAN_MW {
namespace KIT {

namespace {

constexpr char HexDigits[] = "0123456789abcdef";

void CheckCrypto(int result)
{
    if (result != 1) {
        throw std::bad_alloc();
    }
}

// -1 if the character is none.
int ValueOfHexDigit(char digit)
{
    if (digit >= 'A' && digit <= 'F') {
        digit = static_cast<char>(digit - 'A' + 'a');
    }
    const char* const found = digit == '\0' ? nullptr : std::strchr(HexDigits, digit);
    return found ? static_cast<int>(found - HexDigits) : -1;
}

}  // namespace

Sha256::Sha256() : m_Context(EVP_MD_CTX_new())
{
    CheckCrypto(m_Context ? EVP_DigestInit_ex(m_Context.get(), EVP_sha256(), nullptr) : 0);
}

void Sha256::Update(const char* data, std::size_t length)
{
    CheckCrypto(EVP_DigestUpdate(m_Context.get(), data, length));
}

Digest Sha256::Finish()
{
    Digest digest = {};
    CheckCrypto(EVP_DigestFinal_ex(m_Context.get(), digest.data(), nullptr));
    return digest;
}

std::string HexOf(const Digest& digest)
{
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += HexDigits[byte >> 4U];
        text += HexDigits[byte & 15U];
    }
    return text;
}

std::optional<Digest> ParseDigest(const std::string& text)
{
    Digest digest = {};
    if (text.size() != 2 * digest.size()) {
        return std::nullopt;
    }
    for (std::size_t index = 0; index < digest.size(); ++index) {
        const int high = ValueOfHexDigit(text[2 * index]);
        const int low = ValueOfHexDigit(text[2 * index + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        digest[index] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return digest;
}

}  // namespace KIT
}  // namespace VORTAN_MW
