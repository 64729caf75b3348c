#include "TestServer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

#include "Patience.h"

namespace {

// What serve.py exits with when a program is missing.
constexpr int NotInstalled = 77;

void Check(int error, const char* what)
{
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

// Whether there is something to read, or the other end is closed, in time.
bool WaitUntilReadable(int descriptor)
{
    pollfd waiting = {descriptor, POLLIN, 0};
    const auto timeout = std::chrono::milliseconds(Patience);
    int ready = 0;
    do {
        ready = poll(&waiting, 1, static_cast<int>(timeout.count()));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// The N of "listening on port N...".
std::string PortOf(const std::string& line)
{
    const std::string beginning = "listening on port ";
    if (line.rfind(beginning, 0) != 0) {
        return "";
    }
    const std::size_t end = line.find_first_not_of("0123456789", beginning.size());
    return line.substr(beginning.size(), end - beginning.size());
}

// Starts the program as the leader of a process group, with its standard output at output.
pid_t Spawn(std::array<const char*, 5> arguments, int output)
{
    posix_spawn_file_actions_t actions;
    Check(posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
    Check(posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO), "adddup2");
    posix_spawnattr_t attributes;
    Check(posix_spawnattr_init(&attributes), "posix_spawnattr_init");
    Check(posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP), "setflags");

    pid_t process = -1;
    const int error = posix_spawn(&process, arguments[0], &actions, &attributes,
                                  const_cast<char* const*>(arguments.data()), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? process : -1;
}

}  // namespace

TestServer::TestServer(const std::string& kind) : m_Kind(kind)
{
    m_Start();
}

TestServer::~TestServer()
{
    if (m_Process < 0) {
        return;
    }
    kill(m_Process, SIGTERM);
    const int status = m_WaitForEnd();
    // The signal itself ends a server that was not yet ready for it.
    EXPECT_TRUE(WIFEXITED(status) ? WEXITSTATUS(status) == 0 : WTERMSIG(status) == SIGTERM)
        << "the " << m_Kind << " server ended with status " << status;
    // The group outlives its leader if a process stays behind.
    if (kill(-m_Process, 0) == 0) {
        ADD_FAILURE() << "the " << m_Kind << " server left a process behind";
        kill(-m_Process, SIGKILL);
    }
}

void TestServer::m_Start()
{
    std::array<int, 2> ends = {};
    Check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
    const std::string folder = m_Folder.Path();
    m_Process = Spawn({"/usr/bin/python3", VORTAN_TEST_SERVERS "/serve.py", m_Kind.c_str(),
                       folder.c_str(), nullptr},
                      ends[1]);
    close(ends[1]);
    if (m_Process >= 0) {  // else there is no Python
        m_Port = m_ReadPort(ends[0]);
        if (m_Kind == "nginx" && IsInstalled()) {
            m_TlsPort = m_ReadPort(ends[0]);
        }
    }
    close(ends[0]);
    if (m_Process >= 0 && !IsInstalled()) {
        const int status = m_WaitForEnd();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == NotInstalled)
            << "the " << m_Kind << " server did not start: status " << status;
        m_Process = -1;
    }
}

// Reads no further than the end of the line. Empty if there is no port in it.
std::string TestServer::m_ReadPort(int output) const
{
    std::string line;
    char byte = 0;
    do {
        if (!WaitUntilReadable(output)) {
            ADD_FAILURE() << "gave up waiting after " << Patience.count() << " s for the " << m_Kind
                          << " server to say its port; it said \"" << line << '"';
            kill(-m_Process, SIGKILL);
            return "";
        }
        if (read(output, &byte, 1) != 1) {
            return "";
        }
        line += byte;
    } while (byte != '\n');
    return PortOf(line);
}

int TestServer::m_WaitForEnd() const
{
    const auto ended = static_cast<int>(syscall(SYS_pidfd_open, m_Process, 0));
    Check(ended >= 0 ? 0 : errno, "pidfd_open");
    if (!WaitUntilReadable(ended)) {
        ADD_FAILURE() << "gave up waiting after " << Patience.count() << " s for the " << m_Kind
                      << " server to end";
        kill(-m_Process, SIGKILL);
    }
    close(ended);
    int status = 0;
    while (waitpid(m_Process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}
