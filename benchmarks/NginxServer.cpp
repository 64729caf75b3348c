#include "NginxServer.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace {

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

[[noreturn]] void RunServer(const std::string& folder, int output)
{
    dup2(output, STDOUT_FILENO);
    execlp("python3", "python3", VORTAN_TEST_SERVERS "/serve.py", "nginx", folder.c_str(), nullptr);
    _exit(EXIT_FAILURE);
}

// "listening on port N", and then "listening on port M with TLS"; empty if it says nothing.
std::string ReadTlsPort(int output)
{
    const std::unique_ptr<std::FILE, FileCloser> file(fdopen(output, "r"));
    int port = 0;
    const int found = std::fscanf(file.get(), "listening on port %*d listening on port %d", &port);
    return found == 1 ? std::to_string(port) : "";
}

}  // namespace

NginxServer::NginxServer()
{
    if (!mkdtemp(m_Folder.data())) {
        throw std::runtime_error("cannot make " + m_Folder);
    }
    m_Start();
    if (IsInstalled()) {
        m_MakeBundle();
    }
}

NginxServer::~NginxServer()
{
    kill(m_Process, SIGTERM);
    waitpid(m_Process, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(m_Folder, ignored);
}

void NginxServer::m_Start()
{
    std::array<int, 2> ends = {};
    if (pipe(ends.data()) != 0 || (m_Process = fork()) < 0) {
        throw std::runtime_error("cannot start a server");
    }
    if (m_Process == 0) {
        RunServer(m_Folder, ends[1]);
    }
    close(ends[1]);
    m_TlsPort = ReadTlsPort(ends[0]);
}

void NginxServer::m_MakeBundle() const
{
    std::ofstream bundle(Bundle());
    bundle << std::ifstream("/etc/ssl/certs/ca-certificates.crt").rdbuf()
           << std::ifstream(m_Folder + "/ca.pem").rdbuf();
    if (!bundle.flush()) {
        throw std::runtime_error("cannot write " + Bundle());
    }
}

std::string NginxServer::MakeFile(std::size_t size) const
{
    const std::string name = std::to_string(size);
    const std::string path = m_Folder + "/files/" + name;
    std::ofstream(path).close();
    std::filesystem::resize_file(path, size);
    return "https://127.0.0.1:" + m_TlsPort + "/" + name;
}
