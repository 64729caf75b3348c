#include "TestServer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <system_error>

namespace {

// What serve.py exits with when a program is missing.
constexpr int NotInstalled = 77;

void Check(int error, const char* what)
{
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

std::string ReadLine(std::FILE* file)
{
    std::array<char, 100> line = {};
    return std::fgets(line.data(), line.size(), file) ? line.data() : "";
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

int WaitFor(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
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

TestServer::TestServer(const std::string& kind)
{
    m_Start(kind);
}

TestServer::~TestServer()
{
    if (m_Process < 0) {
        return;
    }
    kill(m_Process, SIGTERM);
    const int status = WaitFor(m_Process);
    // The signal itself ends a server that was not yet ready for it.
    EXPECT_TRUE(WIFEXITED(status) ? WEXITSTATUS(status) == 0 : WTERMSIG(status) == SIGTERM)
        << "the server ended with status " << status;
    // The group outlives its leader if a process stays behind.
    if (kill(-m_Process, 0) == 0) {
        ADD_FAILURE() << "the server left a process behind";
        kill(-m_Process, SIGKILL);
    }
}

void TestServer::m_Start(const std::string& kind)
{
    std::array<int, 2> ends = {};
    Check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
    const std::string folder = m_Folder.Path();
    m_Process = Spawn({"/usr/bin/python3", VORTAN_TEST_SERVERS "/serve.py", kind.c_str(),
                       folder.c_str(), nullptr},
                      ends[1]);
    close(ends[1]);
    const std::unique_ptr<std::FILE, FileCloser> output(fdopen(ends[0], "r"));
    if (m_Process < 0) {
        return;  // there is no Python
    }
    m_Port = PortOf(ReadLine(output.get()));
    if (kind == "nginx" && IsInstalled()) {
        m_TlsPort = PortOf(ReadLine(output.get()));
    }
    if (!IsInstalled()) {
        const int status = WaitFor(m_Process);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == NotInstalled)
            << "the server did not start: status " << status;
        m_Process = -1;
    }
}
