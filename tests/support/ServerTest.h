#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>

#include "TestServer.h"

// The kinds of server that tests share.
struct OddServer
{
    static constexpr const char* Kind = "odd";
};
struct NginxServer
{
    static constexpr const char* Kind = "nginx";
};
struct HttpbinServer
{
    static constexpr const char* Kind = "httpbin";
};

// Tests that share one server. Each of them fails if it leaves a file descriptor open. Without the
// server they are skipped; or fail, where VORTAN_REQUIRE_TEST_PEERS says so.
template <typename Server>
class ServerTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        for (const char* const variable : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                           "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
            unsetenv(variable);  // NOLINT(concurrency-mt-unsafe): no thread runs
        }
        s_Server = std::make_unique<TestServer>(Server::Kind);
    }

    static void TearDownTestSuite() { s_Server.reset(); }

    void SetUp() override
    {
        m_OpenBefore = OpenDescriptors();
        if (!s_Server->IsInstalled() && VORTAN_REQUIRE_TEST_PEERS) {
            FAIL() << "a program that the " << Server::Kind << " server needs is not installed";
        }
        if (!s_Server->IsInstalled()) {
            GTEST_SKIP() << "a program that the " << Server::Kind
                         << " server needs is not installed";
        }
    }

    void TearDown() override { EXPECT_EQ(OpenDescriptors(), m_OpenBefore); }

    static std::string Url(const std::string& path) { return s_Server->Url(path); }
    static const TestServer& TheServer() { return *s_Server; }

private:
    static std::ptrdiff_t OpenDescriptors()
    {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    static inline std::unique_ptr<TestServer> s_Server;
    std::ptrdiff_t m_OpenBefore = 0;
};
