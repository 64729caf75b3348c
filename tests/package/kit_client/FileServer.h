#pragma once

#include <string>
#include <thread>

// Answers HTTP requests on the loopback interface, one after the other, with a body.
class FileServer
{
public:
    FileServer(std::string body, int answers);
    FileServer(const FileServer&) = delete;
    FileServer& operator=(const FileServer&) = delete;
    // Waits until all answers are given, or until nobody can ask for them any more.
    ~FileServer();

    std::string Url() const;

private:
    void m_Serve(int answers) const;

    const std::string m_Body;
    const int m_Listener;
    std::thread m_Thread;
};
