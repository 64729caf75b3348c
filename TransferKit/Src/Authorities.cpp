#include "Authorities.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Curl.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// OpenSSL decodes a certificate's extensions when they are first needed. Here no other thread waits
// for that, or does it at the same time.
void DecodeExtensions(X509_STORE* store)
{
    const STACK_OF(X509_OBJECT)* const objects = X509_STORE_get0_objects(store);
    for (int n = 0; n < sk_X509_OBJECT_num(objects); ++n) {
        if (X509* const certificate = X509_OBJECT_get0_X509(sk_X509_OBJECT_value(objects, n))) {
            constexpr int anyPurpose = -1;
            X509_check_purpose(certificate, anyPurpose, 0);
        }
    }
}

// Whether an SSL_CTX of libcurl's is one that the kit's OpenSSL can work on.
bool CurlUsesThisOpenSsl()
{
    const char* const backend = curl_version_info(CURLVERSION_NOW)->ssl_version;
    // "OpenSSL/3.0.11"; several backends are listed with those not in use in parentheses.
    const std::string wanted = "OpenSSL/" + std::to_string(OPENSSL_version_major()) + ".";
    return backend && std::string(backend).compare(0, wanted.size(), wanted) == 0;
}

std::string TextOrNothing(const char* text)
{
    return text ? text : "";
}

bool Exists(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

}  // namespace

Authorities::Authorities(const Policy& policy)
    : m_File(policy.authorityFile), m_Folder(policy.authorityFolder)
{
    if (m_File.empty() && m_Folder.empty()) {
        const curl_version_info_data* const version = curl_version_info(CURLVERSION_NOW);
        m_File = TextOrNothing(version->cainfo);
        m_Folder = TextOrNothing(version->capath);
        // A system without authorities can still use http, or trust nobody.
        if (!Exists(m_File)) {
            m_File.clear();
        }
    }
    const auto& schemes = policy.schemes;
    if (std::find(schemes.begin(), schemes.end(), "https") == schemes.end()) {
        return;
    }
    if (!m_File.empty() && !Exists(m_File)) {
        throw std::runtime_error("The file of certificate authorities cannot be read: " + m_File);
    }
    if (!m_Folder.empty() && m_Folder == policy.authorityFolder && !Exists(m_Folder)) {
        throw std::runtime_error("The folder of certificate authorities does not exist: " +
                                 m_Folder);
    }
    m_AreShared = CurlUsesThisOpenSsl();
    const bool isNamed = !policy.authorityFile.empty() || !policy.authorityFolder.empty();
    if (m_AreShared && isNamed) {
        m_WasTried = true;
        m_Load();
    } else if (m_AreShared) {
        return;
    } else if (policy.authorityFolder.empty() && !m_File.empty()) {
        m_Folder.clear();  // libcurl's own choice; not every TLS library knows folders
    }
}

bool Authorities::AreLoaded() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Store != nullptr;
}

// Null if libcurl has to load them. If libcurl's own cannot be loaded here, it will say why.
X509_STORE* Authorities::m_StoreIfUsable() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_AreShared && !m_WasTried) {
        try {
            m_Load();
        } catch (const std::runtime_error&) {
        }
        m_WasTried = true;
    }
    return m_Store.get();
}

void Authorities::m_Load() const
{
    std::unique_ptr<X509_STORE, StoreDeleter> store(X509_STORE_new());
    if (!store) {
        throw std::bad_alloc();
    }
    // As libcurl does: an intermediate certificate that is trusted ends a chain.
    X509_STORE_set_flags(store.get(), X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
    const bool hasFile = m_File.empty() || X509_STORE_load_file(store.get(), m_File.c_str()) == 1;
    const bool hasFolder =
        m_Folder.empty() || X509_STORE_load_path(store.get(), m_Folder.c_str()) == 1;
    DecodeExtensions(store.get());
    ERR_clear_error();
    if (!hasFile || !hasFolder) {
        throw std::runtime_error("The certificate authorities cannot be read: " +
                                 (hasFile ? m_Folder : m_File));
    }
    m_Store = std::move(store);
}

void Authorities::ApplyTo(PooledHandle& handle) const
{
    CURL* const easy = handle.Easy();
    X509_STORE* const store = m_StoreIfUsable();
    const bool hasFile = !store && !m_File.empty();
    SetOption<CURLOPT_CAINFO>(easy, hasFile ? m_File.c_str() : nullptr);
    if (!store && !m_Folder.empty()) {
        SetOption<CURLOPT_CAPATH>(easy, m_Folder.c_str());
    } else {
        // A TLS library that knows no folders refuses even to have none.
        curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
    }
    if (store) {
        handle.Tls().SetStore(store);
        SetOption<CURLOPT_SSL_CTX_FUNCTION>(easy, &s_SetUpContext);
        SetOption<CURLOPT_SSL_CTX_DATA>(easy, static_cast<void*>(&handle.Tls()));
    }
}

CURLcode Authorities::s_SetUpContext(CURL*, void* context, void* own)
{
    static_cast<TlsContext*>(own)->ApplyTo(static_cast<SSL_CTX*>(context));
    return CURLE_OK;
}

}  // namespace KIT
}  // namespace VORTAN_MW
