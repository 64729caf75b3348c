#pragma once

#include <string>
#include <thread>

// Answers one HTTP request on the loopback interface with a body.
class FileServer
{
public:
    explicit FileServer(std::string body);
    FileServer(const FileServer&) = delete;
    FileServer& operator=(const FileServer&) = delete;
    // Waits until the answer is given, or until nobody can ask for it any more.
    ~FileServer();

    std::string Url() const;

private:
    void m_Serve() const;

    const std::string m_Body;
    const int m_Listener;
    std::thread m_Thread;
};
