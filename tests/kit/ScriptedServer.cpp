#include "ScriptedServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <sstream>
#include <utility>

#include "Patience.h"

namespace {

ScriptedServer::Handler InOrder(std::vector<ScriptedServer::Answer> answers)
{
    return [answers = std::move(answers)](const ScriptedServer::Request& request) {
        return answers[std::min(request.number, answers.size() - 1)];
    };
}

// Closing then sends a reset instead of an end.
void MakeCloseReset(int socket)
{
    const linger immediately = {1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &immediately, sizeof immediately);
}

// An SSL_CTX of a server; null for one without TLS.
SSL_CTX* MakeContext(const ScriptedServer::Tls& tls)
{
    SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
    SSL_CTX_set_max_proto_version(context, tls.newestVersion);
    EXPECT_EQ(SSL_CTX_use_certificate_chain_file(context, tls.server.CertificateFile().c_str()), 1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context, tls.server.KeyFile().c_str(), SSL_FILETYPE_PEM),
              1);
    if (tls.client) {
        EXPECT_EQ(SSL_CTX_load_verify_file(context, tls.client->CertificateFile().c_str()), 1);
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }
    return context;
}

}  // namespace

// A client's connection, with or without TLS.
class ScriptedServer::Wire
{
public:
    Wire(int socket, SSL_CTX* context)
        : m_Socket(socket), m_Ssl(context ? SSL_new(context) : nullptr, &SSL_free)
    {
        if (m_Ssl) {
            // OpenSSL writes without MSG_NOSIGNAL.
            sigset_t brokenPipe;
            sigemptyset(&brokenPipe);
            sigaddset(&brokenPipe, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
            SSL_set_fd(m_Ssl.get(), socket);
            // Session tickets go out before a response, which would wait for their receipt.
            const int on = 1;
            setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        }
    }

    // If the client is refused, it is given the time to read why.
    bool Accept() const
    {
        if (!m_Ssl || SSL_accept(m_Ssl.get()) == 1) {
            return true;
        }
        shutdown(m_Socket, SHUT_WR);
        char buffer[4096];
        while (recv(m_Socket, buffer, sizeof buffer, 0) > 0) {
        }
        return false;
    }

    ssize_t Receive(char* buffer, std::size_t length) const
    {
        return m_Ssl ? SSL_read(m_Ssl.get(), buffer, static_cast<int>(length))
                     : recv(m_Socket, buffer, length, 0);
    }

    bool SendAll(const std::string& bytes) const
    {
        if (m_Ssl) {
            return bytes.empty() ||
                   SSL_write(m_Ssl.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
        }
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t count =
                send(m_Socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return false;
            }
            sent += static_cast<std::size_t>(count);
        }
        return true;
    }

    void WaitForEnd() const
    {
        char buffer[4096];
        while (Receive(buffer, sizeof buffer) > 0) {
        }
    }

    void DripUntilEnd() const
    {
        const timeval interval = {0, 2000};
        setsockopt(m_Socket, SOL_SOCKET, SO_RCVTIMEO, &interval, sizeof interval);
        char byte = 0;
        while (SendAll("x") && Receive(&byte, 1) < 0) {
        }
    }

    // So that the end of a body without a length is told from a broken connection.
    void End() const
    {
        if (m_Ssl) {
            SSL_shutdown(m_Ssl.get());
        }
    }

private:
    const int m_Socket;
    const std::unique_ptr<SSL, decltype(&SSL_free)> m_Ssl;
};

std::string ScriptedServer::Request::Value(const std::string& name) const
{
    std::istringstream lines(header);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > name.size() && line[name.size()] == ':' &&
            strncasecmp(line.c_str(), name.c_str(), name.size()) == 0) {
            const std::size_t first = line.find_first_not_of(' ', name.size() + 1);
            const std::size_t last = line.find_last_not_of("\r ");
            return first == std::string::npos || last < first
                       ? ""
                       : line.substr(first, last - first + 1);
        }
    }
    return "";
}

bool ScriptedServer::Request::Has(const std::string& name) const
{
    std::istringstream lines(header);
    for (std::string line; std::getline(lines, line);) {
        if (strncasecmp(line.c_str(), (name + ":").c_str(), name.size() + 1) == 0) {
            return true;
        }
    }
    return false;
}

ScriptedServer::ScriptedServer(std::vector<Answer> answers)
    : ScriptedServer(InOrder(std::move(answers)))
{}

ScriptedServer::ScriptedServer(Handler handler) : ScriptedServer(std::move(handler), nullptr) {}

ScriptedServer::ScriptedServer(Handler handler, const Tls& tls)
    : ScriptedServer(std::move(handler), MakeContext(tls))
{}

ScriptedServer::ScriptedServer(Handler handler, SSL_CTX* context)
    : m_Handler(std::move(handler)),
      m_Context(context, &SSL_CTX_free),
      m_Listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(m_Listener, general, length), 0);
    EXPECT_EQ(listen(m_Listener, 64), 0);
    EXPECT_EQ(getsockname(m_Listener, general, &length), 0);
    m_Port = ntohs(address.sin_port);
    m_Acceptor = std::thread([this] { m_Accept(); });
}

ScriptedServer::~ScriptedServer()
{
    m_IsOver = true;
    shutdown(m_Listener, SHUT_RDWR);
    m_Acceptor.join();
    CloseConnections();
    for (Connection& connection : m_Connections) {
        connection.thread.join();
    }
    close(m_Listener);
}

std::string ScriptedServer::Authority() const
{
    return "127.0.0.1:" + std::to_string(m_Port);
}

std::string ScriptedServer::Url(const std::string& path) const
{
    return (m_Context ? "https://" : "http://") + Authority() + path;
}

std::vector<ScriptedServer::Request> ScriptedServer::Requests() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Requests;
}

std::size_t ScriptedServer::CountOfConnections() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Connections.size();
}

bool ScriptedServer::WaitForRequests(std::size_t count) const
{
    const auto end = std::chrono::steady_clock::now() + Patience;
    while (Requests().size() < count) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

void ScriptedServer::CloseConnections()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (const Connection& connection : m_Connections) {
        if (connection.socket >= 0) {
            shutdown(connection.socket, SHUT_RDWR);
        }
    }
}

void ScriptedServer::m_Accept()
{
    for (std::size_t number = 0;; ++number) {
        const int socket = accept4(m_Listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            return;
        }
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Connections.push_back({socket, std::thread()});
        m_Connections.back().thread =
            std::thread([this, socket, number] { m_Serve(socket, number); });
    }
}

void ScriptedServer::m_Serve(int socket, std::size_t number)
{
    const Wire wire(socket, m_Context.get());
    std::string pending;
    Request request;
    request.connection = number;
    Answer answer;
    const bool isAccepted = wire.Accept();
    while (isAccepted && !m_IsOver && answer.then == Answer::Then::Keep &&
           s_ReadRequest(wire, pending, request)) {
        answer = m_Answer(request);
        wire.SendAll(answer.bytes);
        if (answer.afterSending) {
            answer.afterSending();
        }
    }
    switch (answer.then) {
        case Answer::Then::Stall:
            wire.WaitForEnd();
            break;
        case Answer::Then::Drip:
            wire.DripUntilEnd();
            break;
        case Answer::Then::Reset:
            MakeCloseReset(socket);
            break;
        case Answer::Then::Close:
            wire.End();
            break;
        case Answer::Then::Keep:
            break;
    }
    m_Forget(socket);
}

// False when the client has gone.
bool ScriptedServer::s_ReadRequest(const Wire& wire, std::string& pending, Request& request)
{
    std::size_t headerEnd = 0;
    std::size_t bodyLength = 0;
    for (;;) {
        headerEnd = pending.find("\r\n\r\n");
        if (headerEnd != std::string::npos) {
            headerEnd += 4;
            request.header = pending.substr(0, headerEnd);
            const std::string length = request.Value("Content-Length");
            bodyLength = length.empty() ? 0 : std::stoul(length);
            if (pending.size() >= headerEnd + bodyLength) {
                break;
            }
        }
        char buffer[65536];
        const ssize_t count = wire.Receive(buffer, sizeof buffer);
        if (count <= 0) {
            return false;
        }
        pending.append(buffer, static_cast<std::size_t>(count));
    }
    request.body = pending.substr(headerEnd, bodyLength);
    pending.erase(0, headerEnd + bodyLength);
    const std::size_t blank = request.header.find(' ');
    request.method = request.header.substr(0, blank);
    request.target =
        request.header.substr(blank + 1, request.header.find(' ', blank + 1) - blank - 1);
    return true;
}

ScriptedServer::Answer ScriptedServer::m_Answer(Request& request)
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        request.number = m_Requests.size();
        m_Requests.push_back(request);
    }
    const std::lock_guard<std::mutex> lock(m_HandlerMutex);
    return m_Handler(request);
}

void ScriptedServer::m_Forget(int socket)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (Connection& connection : m_Connections) {
        if (connection.socket == socket) {
            connection.socket = -1;
        }
    }
    close(socket);
}

std::string HttpResponse(const std::string& statusLine, const std::string& body,
                         const std::vector<std::string>& lines)
{
    std::string response =
        statusLine + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    for (const std::string& line : lines) {
        response += line + "\r\n";
    }
    return response + "\r\n" + body;
}
