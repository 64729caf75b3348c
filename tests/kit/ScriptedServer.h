#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TlsIdentity.h"

// An HTTP server on a free loopback port that answers each request with exactly the bytes that the
// test says, whether they are HTTP or not. It runs on threads of its own.
class ScriptedServer
{
public:
    struct Request
    {
        std::string method;
        std::string target;
        std::string header;  // all lines
        std::string body;
        std::size_t number;      // of all requests, counted from 0
        std::size_t connection;  // counted from 0

        // The value of the first field of this name; empty if there is none.
        std::string Value(const std::string& name) const;
        bool Has(const std::string& name) const;
    };

    struct Answer
    {
        enum class Then
        {
            Keep,   // wait for the next request
            Close,  // end the connection
            Reset,  // break the connection
            Stall,  // say nothing until the client has gone
            Drip,   // send a byte every 2 ms until the client has gone
        };

        std::string bytes;
        Then then = Then::Keep;
        std::function<void()> afterSending = nullptr;
    };

    // What a server with TLS has and demands.
    struct Tls
    {
        const TlsIdentity& server;
        const TlsIdentity* client = nullptr;  // a client must show this identity
        int newestVersion = TLS1_3_VERSION;
    };

    using Handler = std::function<Answer(const Request&)>;

    // Called on the servers' threads, one at a time.
    explicit ScriptedServer(Handler handler);
    // One answer for each request, in order; the last one also for all further requests.
    explicit ScriptedServer(std::vector<Answer> answers);
    ScriptedServer(Handler handler, const Tls& tls);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    std::string Url(const std::string& path = "/") const;
    // "127.0.0.1:port"
    std::string Authority() const;
    std::vector<Request> Requests() const;
    std::size_t CountOfConnections() const;
    // Blocks until the server has seen so many requests; false if it takes too long.
    bool WaitForRequests(std::size_t count) const;

    // Ends all connections, as a server does with those that are idle.
    void CloseConnections();

private:
    struct Connection
    {
        int socket;
        std::thread thread;
    };

    class Wire;

    ScriptedServer(Handler handler, SSL_CTX* context);

    void m_Accept();
    void m_Serve(int socket, std::size_t number);
    static bool s_ReadRequest(const Wire& wire, std::string& pending, Request& request);
    Answer m_Answer(Request& request);
    void m_Forget(int socket);

    const Handler m_Handler;
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> m_Context;  // null: without TLS
    int m_Listener;
    int m_Port = 0;
    std::atomic<bool> m_IsOver{false};
    mutable std::mutex m_HandlerMutex;
    mutable std::mutex m_Mutex;
    std::vector<Request> m_Requests;      // guarded by m_Mutex
    std::list<Connection> m_Connections;  // guarded by m_Mutex
    std::thread m_Acceptor;
};

// "HTTP/1.1 200 OK" with a Content-Length and further header lines, each without its line end.
std::string HttpResponse(const std::string& statusLine, const std::string& body,
                         const std::vector<std::string>& lines = {});

// A response that succeeds.
inline const std::string Good = HttpResponse("HTTP/1.1 200 OK", "good");
