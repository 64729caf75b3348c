#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

// A loopback port that nobody else gets while the object lives, and at which nobody answers.
class LoopbackPort
{
public:
    // Connecting fails.
    LoopbackPort() : m_Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        m_Address.sin_family = AF_INET;
        m_Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const address = reinterpret_cast<sockaddr*>(&m_Address);
        socklen_t length = sizeof m_Address;
        EXPECT_EQ(bind(m_Socket, address, length), 0);
        EXPECT_EQ(getsockname(m_Socket, address, &length), 0);
    }
    LoopbackPort(const LoopbackPort&) = delete;
    LoopbackPort& operator=(const LoopbackPort&) = delete;
    ~LoopbackPort() { close(m_Socket); }

    // From here on connecting succeeds.
    void Listen() { EXPECT_EQ(listen(m_Socket, 1), 0); }

    sockaddr_in Address() const { return m_Address; }

    std::string Url(const std::string& scheme = "http") const
    {
        return scheme + "://127.0.0.1:" + std::to_string(ntohs(m_Address.sin_port)) + "/";
    }

private:
    int m_Socket;
    sockaddr_in m_Address = {};
};
