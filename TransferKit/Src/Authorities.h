#pragma once

#include <curl/curl.h>
#include <openssl/x509.h>

#include <memory>
#include <mutex>
#include <string>

#include "HandlePool.h"
#include "PolicyData.h"

namespace VORTAN_MW {
namespace KIT {

// The certificate authorities that a session trusts, loaded once and shared by all its connections:
// each time libcurl loads Debian's takes some 100 ms on a slow device. Those that the policy names
// are loaded at once, so that an unusable file is known early; libcurl's own only when a connection
// needs them. A libcurl that is not over the same OpenSSL as the kit gets the names of the files,
// and loads them for itself.
class Authorities
{
public:
    // Throws std::runtime_error if they cannot be read.
    explicit Authorities(const Policy& policy);

    // Has the transfer trust these, and no others. The object must outlive the handle's transfers.
    // Any thread may call it. Throws std::bad_alloc.
    void ApplyTo(PooledHandle& handle) const;

    // Whether the kit loads them, and not libcurl.
    bool AreShared() const { return m_AreShared; }
    bool AreLoaded() const;

private:
    struct StoreDeleter
    {
        void operator()(X509_STORE* store) const { X509_STORE_free(store); }
    };

    X509_STORE* m_StoreIfUsable() const;
    void m_Load() const;

    static CURLcode s_SetUpContext(CURL* easy, void* context, void* own);

    std::string m_File;
    std::string m_Folder;
    bool m_AreShared = false;

    mutable std::mutex m_Mutex;
    // Guarded by m_Mutex:
    mutable bool m_WasTried = false;
    mutable std::unique_ptr<X509_STORE, StoreDeleter> m_Store;
};

}  // namespace KIT
}  // namespace VORTAN_MW
