#pragma once

#include <HttpSession.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "CaughtLog.h"

// What the tests of the kit share.

using Configuration = VORTAN_MW::ITransferHandler::Configuration;
using HttpMethod = Configuration::HttpMethod;

// A policy for servers on the loopback interface: http only, and waits are short.
VORTAN_MW::KIT::TransferPolicy LocalPolicy();

Configuration Request(const std::string& url, HttpMethod method = HttpMethod::EhttpGet,
                      const std::string& body = "");

// What a transfer yielded.
struct Received
{
    bool success = false;
    long status = -1;
    std::string header;
    std::string body;
    std::size_t headerChunks = 0;
};

// Remembers all events of a transfer.
class RecordingObserver : public VORTAN_MW::KIT::ITransferObserver
{
public:
    struct Event
    {
        VORTAN_MW::KIT::TransferEvent::Kind kind;
        std::uint32_t attempt;
        std::uint64_t delivered;
        std::int64_t expected;
        std::uint64_t uploaded;
        long status;
        std::chrono::milliseconds delay;
        VORTAN_MW::KIT::Category category;
        std::string sentence;
        bool isKept;
        std::chrono::microseconds total;
        std::string redirectTarget;
    };

    void OnEvent(const VORTAN_MW::KIT::TransferEvent& event) override;

    std::size_t Count(VORTAN_MW::KIT::TransferEvent::Kind kind) const;
    // Of the last event.
    VORTAN_MW::KIT::Category End() const { return events.back().category; }

    std::vector<Event> events;
};

// How a client has a transfer performed.
enum class Way
{
    WithoutAgent,
    Plain,
    Segmented,
};

// A transfer with its outcome.
struct Course
{
    Received received;
    std::shared_ptr<RecordingObserver> observer;

    VORTAN_MW::KIT::Category Category() const { return observer->End(); }
};
Course Watch(VORTAN_MW::KIT::HttpSession& session, const Configuration& request,
             VORTAN_MW::KIT::TransferOptions options = {}, Way way = Way::WithoutAgent);

// Without an agent and an observer, in chunks.
Received Fetch(VORTAN_MW::KIT::HttpSession& session, const Configuration& request,
               const VORTAN_MW::KIT::TransferOptions& options = {});

// Tests that each way of transferring passes.
class KitPromise : public ::testing::TestWithParam<Way>
{
protected:
    Course Watch(const Configuration& request, const VORTAN_MW::KIT::TransferOptions& options = {});
    // With a policy for this test.
    Course WatchWith(const VORTAN_MW::KIT::TransferPolicy& policy, const Configuration& request,
                     const VORTAN_MW::KIT::TransferOptions& options = {});
    // Plain transfers that fail deliver nothing.
    static bool DeliversFailures() { return GetParam() != Way::Plain; }

    const CaughtLog log;
    VORTAN_MW::KIT::HttpSession session{LocalPolicy()};
};

// INSTANTIATE_TEST_SUITE_P(Each, Suite, Ways(), NameOfWay);
inline auto Ways()
{
    return ::testing::Values(Way::WithoutAgent, Way::Plain, Way::Segmented);
}
std::string NameOfWay(const ::testing::TestParamInfo<Way>& way);
