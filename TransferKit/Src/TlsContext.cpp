#include "TlsContext.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// The application data of a context may be libcurl's.
int IndexOfData()
{
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

// Whether a server that sends this alert will send it again. Before TLS 1.3 a missing certificate
// is a handshake failure.
bool IsRefusal(int alert)
{
    switch (alert) {
        case SSL_AD_HANDSHAKE_FAILURE:
        case SSL_AD_BAD_CERTIFICATE:
        case SSL_AD_UNSUPPORTED_CERTIFICATE:
        case SSL_AD_CERTIFICATE_REVOKED:
        case SSL_AD_CERTIFICATE_EXPIRED:
        case SSL_AD_CERTIFICATE_UNKNOWN:
        case SSL_AD_UNKNOWN_CA:
        case SSL_AD_ACCESS_DENIED:
        case SSL_AD_PROTOCOL_VERSION:
        case SSL_AD_INSUFFICIENT_SECURITY:
        case SSL_AD_CERTIFICATE_REQUIRED:
            return true;
        default:
            return false;
    }
}

}  // namespace

void TlsContext::ApplyTo(SSL_CTX* context)
{
    SSL_CTX_set1_cert_store(context, m_Store);
    if (SSL_CTX_set_ex_data(context, IndexOfData(), this) == 1) {
        SSL_CTX_set_info_callback(context, &s_OnEvent);
    }
}

void TlsContext::s_OnEvent(const SSL* connection, int where, int what)
{
    constexpr int inLowByte = 0xFF;
    if (where != SSL_CB_READ_ALERT || !IsRefusal(what & inLowByte)) {
        return;
    }
    const SSL_CTX* const context = SSL_get_SSL_CTX(connection);
    auto* const self = static_cast<TlsContext*>(SSL_CTX_get_ex_data(context, IndexOfData()));
    self->m_IsRefused = true;
}

}  // namespace KIT
}  // namespace VORTAN_MW
