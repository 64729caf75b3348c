#pragma once

#include <sys/types.h>

#include <string>

#include "TemporaryFolder.h"

// A server in a process of its own, on a free loopback port, for as long as the object lives. Its
// end fails the test if the server met an error, if a client left a connection open (the odd server
// only) or if a process stays behind.
class TestServer
{
public:
    // As tests/integration/servers/serve.py calls them.
    explicit TestServer(const std::string& kind);
    ~TestServer();
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    // False if a program that the server needs is not installed.
    bool IsInstalled() const { return !m_Port.empty(); }

    std::string Url(const std::string& path) const { return "http://127.0.0.1:" + m_Port + path; }
    // Nginx only.
    std::string TlsUrl(const std::string& path, const std::string& host = "127.0.0.1") const
    {
        return "https://" + host + ":" + m_TlsPort + path;
    }
    const TemporaryFolder& Folder() const { return m_Folder; }

private:
    void m_Start();
    std::string m_ReadPort(int output) const;
    int m_WaitForEnd() const;

    const std::string m_Kind;
    const TemporaryFolder m_Folder;
    pid_t m_Process = -1;
    std::string m_Port;
    std::string m_TlsPort;
};
