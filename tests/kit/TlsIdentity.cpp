#include "TlsIdentity.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <memory>

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

std::atomic<int> s_Count{0};

void AddExtension(X509* certificate, int kind, const char* value)
{
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
    EXPECT_EQ(X509_add_ext(certificate, extension, -1), 1);
    X509_EXTENSION_free(extension);
}

Certificate SelfSigned(EVP_PKEY* key)
{
    Certificate certificate(X509_new(), &X509_free);
    X509* const made = certificate.get();
    constexpr long day = 24L * 60 * 60;
    X509_set_version(made, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(made), 1);
    X509_gmtime_adj(X509_getm_notBefore(made), -day);
    X509_gmtime_adj(X509_getm_notAfter(made), day);
    X509_set_pubkey(made, key);
    // Unique, because an issuer is looked up by its name.
    const std::string text = "test " + std::to_string(++s_Count);
    X509_NAME* const name = X509_get_subject_name(made);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1, 0);
    X509_set_issuer_name(made, name);
    AddExtension(made, NID_subject_alt_name, "IP:127.0.0.1");
    EXPECT_GT(X509_sign(made, key, EVP_sha256()), 0);
    return certificate;
}

std::string PinOf(EVP_PKEY* key)
{
    unsigned char* encoded = nullptr;
    const int length = i2d_PUBKEY(key, &encoded);
    std::array<unsigned char, 32> hash = {};
    EXPECT_EQ(EVP_Digest(encoded, static_cast<std::size_t>(length), hash.data(), nullptr,
                         EVP_sha256(), nullptr),
              1);
    OPENSSL_free(encoded);
    std::array<unsigned char, 45> text = {};
    EVP_EncodeBlock(text.data(), hash.data(), static_cast<int>(hash.size()));
    return std::string("sha256//") + reinterpret_cast<const char*>(text.data());
}

}  // namespace

TlsIdentity::TlsIdentity()
{
    const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    const Certificate certificate = SelfSigned(key.get());
    const auto open = [](const std::string& path) {
        return File(std::fopen(path.c_str(), "we"), &std::fclose);
    };
    EXPECT_EQ(PEM_write_X509(open(CertificateFile()).get(), certificate.get()), 1);
    EXPECT_EQ(PEM_write_PrivateKey(open(KeyFile()).get(), key.get(), nullptr, nullptr, 0, nullptr,
                                   nullptr),
              1);
    EXPECT_EQ(PEM_write_PUBKEY(open(PublicKeyFile()).get(), key.get()), 1);
    m_Pin = PinOf(key.get());
}
