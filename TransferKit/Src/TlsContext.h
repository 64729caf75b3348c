#pragma once

#include <openssl/ssl.h>

namespace VORTAN_MW {
namespace KIT {

// What OpenSSL uses of the kit's for a handle's connections, and tells it of them. It outlives
// them.
class TlsContext
{
public:
    TlsContext() = default;
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    // The authorities that the next connection trusts.
    void SetStore(X509_STORE* store) { m_Store = store; }
    void ApplyTo(SSL_CTX* context);

    // A request begins.
    void Reset() { m_IsRefused = false; }
    // Whether the server has refused the client since. In TLS 1.3 it does so after the handshake,
    // and to libcurl that is a connection that broke.
    bool IsRefused() const { return m_IsRefused; }

private:
    static void s_OnEvent(const SSL* connection, int where, int what);

    X509_STORE* m_Store = nullptr;
    bool m_IsRefused = false;
};

}  // namespace KIT
}  // namespace VORTAN_MW
