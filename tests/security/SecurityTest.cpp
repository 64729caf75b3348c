#include "SecurityTest.h"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "CurlEasyHandlerFactory.h"

using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;

namespace {

struct Servers
{
    TestServer odd{"odd"};
    TestServer nginx{"nginx"};
    TestServer ftp{"ftp"};
};

std::unique_ptr<Servers>& TheServers()
{
    static std::unique_ptr<Servers> servers;
    return servers;
}

}  // namespace

void Security::SetUpTestSuite()
{
    for (const char* const variable :
         {"http_proxy", "https_proxy", "HTTPS_PROXY", "ftp_proxy", "FTP_PROXY", "all_proxy",
          "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        unsetenv(variable);  // NOLINT(concurrency-mt-unsafe): no thread runs
    }
    TheServers() = std::make_unique<Servers>();
}

void Security::TearDownTestSuite()
{
    TheServers().reset();
}

void Security::SetUp()
{
    if (Odd().IsInstalled() && Nginx().IsInstalled() && Ftp().IsInstalled()) {
        return;
    }
    if (VORTAN_REQUIRE_TEST_PEERS) {
        FAIL() << "a program that a server needs is not installed";
    }
    GTEST_SKIP() << "a program that a server needs is not installed";
}

const TestServer& Security::Odd()
{
    return TheServers()->odd;
}

const TestServer& Security::Nginx()
{
    return TheServers()->nginx;
}

const TestServer& Security::Ftp()
{
    return TheServers()->ftp;
}

Stream::Stream(const Configuration& configuration, OnBytes onHeader, OnBytes onData)
    : m_Agent(VORTAN_MW::AsyncTransferAgentManager::Create())
{
    const auto handOn = [](OnBytes receive) -> ITransferAgentManager::DataCallback {
        if (!receive) {
            return nullptr;
        }
        return [receive = std::move(receive)](std::unique_ptr<Bytes> chunk, void*) {
            if (chunk) {
                receive(*chunk);
            }
        };
    };
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    static_cast<Configuration&>(*request) = configuration;
    request->handlerFactory = std::make_unique<VORTAN_MW::CurlEasyHandlerFactory>();
    request->segmented = true;
    request->headerCallback = handOn(std::move(onHeader));
    request->dataCallback = handOn(std::move(onData));
    request->completeCallback = [this](const ITransferHandler::Result& result, void*) {
        m_Success = result.success;
        m_Over.Open();
    };
    m_Handle = m_Agent->RequestTransfer(std::move(request));
    m_HandleIsKnown.Open();
}

void Stream::Cancel()
{
    EXPECT_TRUE(m_HandleIsKnown.Wait());
    EXPECT_TRUE(m_Manager->CancelTransfer(m_Handle));
}

bool Stream::WaitForSuccess()
{
    EXPECT_TRUE(m_Over.Wait());
    return m_Success;
}

std::size_t ResidentBytes()
{
    std::ifstream statistics("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    statistics >> all >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::string Encoded(const std::string& url)
{
    std::string encoded;
    for (const char character : url) {
        encoded += character == '/' ? "%2F" : std::string(1, character);
    }
    return encoded;
}
