#include "FuzzedServer.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "Require.h"

namespace {

thread_local FuzzedServer* s_Current = nullptr;

// Takes in whatever is sent until the other side closes, so that it never has to wait for room.
void ReadToEnd(int socket)
{
    char buffer[65536];
    while (read(socket, buffer, sizeof buffer) > 0) {
    }
    close(socket);
}

bool HasHeader(CURL* handle, const char* name)
{
    curl_header* header = nullptr;
    return curl_easy_header(handle, name, 0, CURLH_HEADER, -1, &header) == CURLHE_OK;
}

template <typename T>
void Set(CURL* handle, CURLoption option, T value)
{
    Require(curl_easy_setopt(handle, option, value) == CURLE_OK, "libcurl takes the option");
}

}  // namespace

FuzzedServer::Scope::Scope(FuzzedServer& server)
{
    s_Current = &server;
}

FuzzedServer::Scope::~Scope()
{
    s_Current = nullptr;
}

FuzzedServer::FuzzedServer(std::vector<std::string> replies, bool smallPieces)
    : m_Replies(std::move(replies)), m_SmallPieces(smallPieces)
{}

FuzzedServer::~FuzzedServer()
{
    for (std::thread& reader : m_Readers) {
        reader.join();
    }
}

std::string FuzzedServer::AllBytes() const
{
    std::string bytes;
    for (const std::string& reply : m_Replies) {
        bytes += reply;
    }
    return bytes;
}

curl_socket_t FuzzedServer::s_Open(void* server, curlsocktype /*purpose*/,
                                   curl_sockaddr* /*address*/)
{
    return static_cast<FuzzedServer*>(server)->m_Open();
}

curl_socket_t FuzzedServer::m_Open()
{
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    const auto [client, server] = ends;
    if (m_Connections < m_Replies.size()) {
        // A socket holds more than any input is long.
        const std::string& reply = m_Replies[m_Connections];
        Require(send(server, reply.data(), reply.size(), MSG_DONTWAIT) ==
                    static_cast<ssize_t>(reply.size()),
                "the reply fits into the socket");
    }
    ++m_Connections;
    shutdown(server, SHUT_WR);
    m_Readers.emplace_back(ReadToEnd, server);
    return client;
}

void FuzzedServer::m_Prepare(CURL* handle, curl_slist* destination)
{
    Set(handle, CURLOPT_OPENSOCKETFUNCTION, &s_Open);
    Set(handle, CURLOPT_OPENSOCKETDATA, this);
    // Every host is this address, and every redirect stays with the one protocol.
    Set(handle, CURLOPT_CONNECT_TO, destination);
    Set(handle, CURLOPT_PROTOCOLS_STR, "http");
    Set(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http");
    Set(handle, CURLOPT_PROXY, "");
    // A server that answers at once is not waited for.
    Set(handle, CURLOPT_EXPECT_100_TIMEOUT_MS, 1L);
    if (m_SmallPieces) {
        Set(handle, CURLOPT_BUFFERSIZE, 1024L);
    }
}

void FuzzedServer::m_Look(CURL* handle)
{
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &m_Outcome.status);
    curl_easy_getinfo(handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &m_Outcome.contentLength);
    m_Outcome.isEncoded =
        HasHeader(handle, "Content-Encoding") || HasHeader(handle, "Transfer-Encoding");
}

CURLcode FuzzedServer::Perform(CURL* handle)
{
    static const auto perform =
        reinterpret_cast<CURLcode (*)(CURL*)>(dlsym(RTLD_NEXT, "curl_easy_perform"));
    Require(perform && s_Current, "libcurl is used by a handler of the target only");
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> destination(
        curl_slist_append(nullptr, "::127.0.0.1:80"), &curl_slist_free_all);
    s_Current->m_Prepare(handle, destination.get());
    s_Current->m_Outcome.code = perform(handle);
    ++s_Current->m_Outcome.performed;
    s_Current->m_Look(handle);
    curl_easy_setopt(handle, CURLOPT_CONNECT_TO, nullptr);
    return s_Current->m_Outcome.code;
}

// Found before libcurl's own, by the library and by the wrapper's stand-in alike.
extern "C" __attribute__((visibility("default"))) CURLcode curl_easy_perform(CURL* handle)
{
    return FuzzedServer::Perform(handle);
}

// The sockets are connected from the beginning, and no other is to be.
extern "C" __attribute__((visibility("default"))) int connect(int /*socket*/,
                                                              const sockaddr* /*address*/,
                                                              socklen_t /*length*/)
{
    return 0;
}
