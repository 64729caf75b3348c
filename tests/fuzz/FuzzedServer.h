#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// The other end of every connection that libcurl opens, whatever it is asked for: a socket of the
// own process, on which a prepared reply waits. No connection leaves the process, and no name is
// looked up.
class FuzzedServer
{
public:
    // The first connection gets the first reply, and so on; with none left, a connection is closed
    // at once. smallPieces lets libcurl receive in pieces as small as it can.
    FuzzedServer(std::vector<std::string> replies, bool smallPieces);
    FuzzedServer(const FuzzedServer&) = delete;
    FuzzedServer& operator=(const FuzzedServer&) = delete;
    ~FuzzedServer();

    // Lets the server answer what libcurl performs on this thread.
    class Scope
    {
    public:
        explicit Scope(FuzzedServer& server);
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope();
    };

    // All replies in one.
    std::string AllBytes() const;

    // What libcurl told of the transfer.
    struct Outcome
    {
        int performed = 0;
        CURLcode code = CURLE_OK;
        long status = 0;
        // Of the last response; -1 if it named none.
        curl_off_t contentLength = -1;
        // The bytes of the body are not the ones that were sent.
        bool isEncoded = false;
    };
    const Outcome& Result() const { return m_Outcome; }

    // In the place of curl_easy_perform, on a thread with a Scope.
    static CURLcode Perform(CURL* handle);

private:
    static curl_socket_t s_Open(void* server, curlsocktype purpose, curl_sockaddr* address);

    curl_socket_t m_Open();
    void m_Prepare(CURL* handle, curl_slist* destination);
    void m_Look(CURL* handle);

    const std::vector<std::string> m_Replies;
    const bool m_SmallPieces;
    std::size_t m_Connections = 0;
    std::vector<std::thread> m_Readers;
    Outcome m_Outcome;
};
