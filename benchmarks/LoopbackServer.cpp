#include "LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

namespace {

int Check(int result)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), "loopback server");
    }
    return result;
}

constexpr char EndOfHead[] = "\r\n\r\n";
const std::string LastChunk = "\r\n0\r\n\r\n";

// Reads the head of a request, and what has come with it; empty if the client went away.
std::string ReceiveRequest(int connection)
{
    std::string request;
    while (request.find(EndOfHead) == std::string::npos) {
        char piece[4096];
        const ssize_t count = recv(connection, piece, sizeof piece, 0);
        if (count <= 0) {
            return {};
        }
        request.append(piece, static_cast<std::size_t>(count));
    }
    return request;
}

bool Send(int connection, const char* data, std::size_t size, int flags)
{
    while (size > 0) {
        const ssize_t count = send(connection, data, size, MSG_NOSIGNAL | flags);
        if (count < 0) {
            return false;
        }
        data += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

// Receives up to a block, and appends its end to the last bytes so far; 0 if the client went away.
std::size_t ReceiveBlock(int connection, std::string& last)
{
    static std::vector<char> block(std::size_t{256} * 1024);
    const ssize_t count = recv(connection, block.data(), block.size(), 0);
    const auto received = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    const std::size_t kept = std::min(received, LastChunk.size());
    last.append(block.data() + received - kept, kept);
    last.erase(0, last.size() - std::min(last.size(), LastChunk.size()));
    return received;
}

// Receives what a request uploads, announced or chunked. The client waits to be told that it may.
bool ReceiveUpload(int connection, const std::string& request)
{
    static const std::string announcement = "Content-Length: ";
    const std::size_t announced = request.find(announcement);
    const bool isChunked = request.find("Transfer-Encoding: chunked") != std::string::npos;
    if (announced == std::string::npos && !isChunked) {
        return true;
    }
    const std::string proceed = "HTTP/1.1 100 Continue\r\n\r\n";
    const std::size_t body = request.find(EndOfHead) + std::strlen(EndOfHead);
    const unsigned long long length =
        isChunked ? 0
                  : std::strtoull(request.c_str() + announced + announcement.size(), nullptr, 10);
    unsigned long long received = request.size() - body;
    std::string last = request.substr(std::max(body, request.size() - LastChunk.size()));
    bool whole = Send(connection, proceed.data(), proceed.size(), 0);
    while (whole && (isChunked ? last != LastChunk : received < length)) {
        const std::size_t count = ReceiveBlock(connection, last);
        whole = count > 0;
        received += count;
    }
    return whole;
}

using Connections = LoopbackServer::Connections;

// "GET /1024 HTTP/1.1": the path is the length of the body, which "GET /-1024 HTTP/1.1" keeps from
// the client. Returns false if there was no request, or the client went away.
bool Answer(int connection, Connections connections)
{
    static const std::string block(std::size_t{256} * 1024, 'x');
    const std::string request = ReceiveRequest(connection);
    const std::size_t slash = request.find('/');
    if (slash == std::string::npos || !ReceiveUpload(connection, request)) {
        return false;
    }
    const long long path = std::strtoll(request.c_str() + slash + 1, nullptr, 10);
    auto left = static_cast<unsigned long long>(std::abs(path));
    const std::string length = path < 0 ? "" : "Content-Length: " + std::to_string(left) + "\r\n";
    const std::string close = connections == Connections::Closed ? "Connection: close\r\n" : "";
    const std::string head = "HTTP/1.1 200 OK\r\n" + length + close + "\r\n";
    bool sent = Send(connection, head.data(), head.size(), MSG_MORE);
    while (sent && left > 0) {
        const auto size =
            static_cast<std::size_t>(std::min<unsigned long long>(left, block.size()));
        sent = Send(connection, block.data(), size, 0);
        left -= size;
    }
    return sent;
}

void AnswerAll(int connection)
{
    while (Answer(connection, Connections::Kept)) {
    }
    close(connection);
}

// One connection at a time: answering a small request takes a fraction of the client's time. Those
// that are kept have a thread each.
[[noreturn]] void Serve(int listener, Connections connections)
{
    for (;;) {
        const int connection = accept(listener, nullptr, nullptr);
        if (connection >= 0 && connections == Connections::Kept) {
            std::thread(AnswerAll, connection).detach();
        } else if (connection >= 0) {
            Answer(connection, connections);
            close(connection);
        }
    }
}

}  // namespace

LoopbackServer::LoopbackServer(Connections connections)
{
    const int listener = Check(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    Check(bind(listener, generic, length));
    Check(getsockname(listener, generic, &length));
    Check(listen(listener, SOMAXCONN));
    m_Port = ntohs(address.sin_port);

    m_Process = Check(fork());
    if (m_Process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // also when the parent is ended by a signal
        Serve(listener, connections);
    }
    close(listener);
}

LoopbackServer::~LoopbackServer()
{
    kill(m_Process, SIGKILL);
    waitpid(m_Process, nullptr, 0);
}

std::string LoopbackServer::Url(std::size_t size) const
{
    return "http://127.0.0.1:" + std::to_string(m_Port) + "/" + std::to_string(size);
}

std::string LoopbackServer::UnannouncedUrl(std::size_t size) const
{
    return "http://127.0.0.1:" + std::to_string(m_Port) + "/-" + std::to_string(size);
}
