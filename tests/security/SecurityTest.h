#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "AsyncTransferAgentManager.h"
#include "CaughtLog.h"
#include "Gate.h"
#include "HttpExchange.h"
#include "TestServer.h"

// The tests behind docs/security.md: each of its headings is the name of one of them. Each has
// servers of every kind; they are skipped where one is not installed, or fail, where
// VORTAN_REQUIRE_TEST_PEERS says so.
class Security : public ::testing::Test
{
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;

    static const TestServer& Odd();
    static const TestServer& Nginx();
    static const TestServer& Ftp();

    CaughtLog log;
};

// A streamed transfer through an agent. The worker writes what it holds: look at it when the
// transfer is over.
class Stream
{
public:
    using Bytes = VORTAN_MW::ITransferHandler::Bytes;
    using OnBytes = std::function<void(const Bytes&)>;

    // Empty functions want nothing.
    Stream(const Configuration& configuration, OnBytes onHeader, OnBytes onData);

    // May be called by the functions.
    void Cancel();
    // False if it was cancelled, or failed.
    bool WaitForSuccess();
    // Returns when no callback runs any more.
    void ShutDown() { m_Agent.reset(); }

private:
    std::unique_ptr<VORTAN_MW::ITransferAgentManager> m_Agent;
    // To cancel with while the agent is being destroyed.
    VORTAN_MW::ITransferAgentManager* m_Manager = m_Agent.get();
    std::uint64_t m_Handle = VORTAN_MW::ITransferAgentManager::InvalidHandle;
    Gate m_HandleIsKnown;
    bool m_Success = false;
    Gate m_Over;
};

// What the process holds in memory.
std::size_t ResidentBytes();

// A path with its special characters encoded, to be a part of another one.
std::string Encoded(const std::string& url);
