#pragma once

#include <sys/types.h>

#include <string>

// nginx as the tests start it (tests/integration/servers/serve.py), with a certificate on loopback,
// in processes of its own.
class NginxServer
{
public:
    // Forks: to be constructed while the process has one thread. Throws std::runtime_error.
    NginxServer();
    NginxServer(const NginxServer&) = delete;
    NginxServer& operator=(const NginxServer&) = delete;
    // Ends the server and removes its files.
    ~NginxServer();

    // False if nginx, openssl or Python is not installed.
    bool IsInstalled() const { return !m_TlsPort.empty(); }

    // Makes a file of so many zero bytes, and returns its URL over TLS.
    std::string MakeFile(std::size_t size) const;

    // Debian's authorities and the one that signed the server's certificate, in one file.
    std::string Bundle() const { return m_Folder + "/authorities.pem"; }
    // The signing authority and another one, in a folder with names by their hashes.
    std::string HashedFolder() const { return m_Folder + "/authorities"; }

private:
    void m_Start();
    void m_MakeBundle() const;

    std::string m_Folder = "/tmp/vortan_nginx_XXXXXX";
    pid_t m_Process = -1;
    std::string m_TlsPort;
};
