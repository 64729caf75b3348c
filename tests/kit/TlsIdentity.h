#pragma once

#include <string>

#include "TemporaryFolder.h"

// A private key and a certificate for 127.0.0.1 that it has signed itself, in files. Whoever trusts
// the certificate trusts the identity.
class TlsIdentity
{
public:
    TlsIdentity();

    std::string CertificateFile() const { return m_Folder.Path("certificate.pem"); }
    std::string KeyFile() const { return m_Folder.Path("key.pem"); }
    // The public key in a file.
    std::string PublicKeyFile() const { return m_Folder.Path("public.pem"); }
    // "sha256//" and the base64 hash of the public key.
    const std::string& Pin() const { return m_Pin; }

private:
    const TemporaryFolder m_Folder;
    std::string m_Pin;
};
