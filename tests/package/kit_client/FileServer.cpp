#include "FileServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace {

int Listen()
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 1) != 0) {
        throw std::runtime_error("cannot listen");
    }
    return listener;
}

// The request's header ends with an empty line, and there is no body.
void SkipRequest(int connection)
{
    std::string request;
    char byte = 0;
    while (request.find("\r\n\r\n") == std::string::npos && read(connection, &byte, 1) == 1) {
        request += byte;
    }
}

void Send(int connection, const std::string& text)
{
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count =
            send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

}  // namespace

FileServer::FileServer(std::string body, int answers)
    : m_Body(std::move(body)), m_Listener(Listen()), m_Thread([this, answers] { m_Serve(answers); })
{}

FileServer::~FileServer()
{
    shutdown(m_Listener, SHUT_RDWR);
    m_Thread.join();
    close(m_Listener);
}

std::string FileServer::Url() const
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    getsockname(m_Listener, reinterpret_cast<sockaddr*>(&address), &size);
    return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
}

void FileServer::m_Serve(int answers) const
{
    for (int i = 0; i < answers; ++i) {
        const int connection = accept(m_Listener, nullptr, nullptr);
        if (connection < 0) {
            return;
        }
        SkipRequest(connection);
        Send(connection, "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " +
                             std::to_string(m_Body.size()) + "\r\n\r\n" + m_Body);
        close(connection);
    }
}
