#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

// An HTTP server on a loopback port of the system's choice. It runs in a process of its own, so
// that its CPU time is not counted, and sends from memory.
class LoopbackServer
{
public:
    // Whether a connection is closed after its first response, or serves further requests. Those
    // that are closed are served one at a time.
    enum class Connections
    {
        Closed,
        Kept
    };

    // Forks: to be constructed while the process has one thread. Throws std::system_error.
    explicit LoopbackServer(Connections connections = Connections::Closed);
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    // Ends the server's process.
    ~LoopbackServer();

    // The URL of a body of so many bytes, whose length the server announces. An upload to it is
    // received first.
    std::string Url(std::size_t size) const;
    // The same for a body that ends with the connection.
    std::string UnannouncedUrl(std::size_t size) const;

private:
    std::uint16_t m_Port = 0;
    pid_t m_Process = -1;
};
