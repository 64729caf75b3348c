#include <gtest/gtest.h>

#include <thread>

#include "transfer/Mailbox.h"

using namespace VORTAN_TRANSFER;

TEST(Mailbox, WaitsForAnEventOfAnotherThread)
{
    Mailbox mailbox;
    std::thread thread([&mailbox] { mailbox.Post({Event::Kind::TransferEnded, 7, {}}); });
    const std::vector<Event> events = mailbox.Receive(nullptr);
    thread.join();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events.front().job, 7U);
}

TEST(Mailbox, KeepsTheOrderOfEvents)
{
    Mailbox mailbox;
    mailbox.Post({Event::Kind::TransferEnded, 1, {}});
    mailbox.Post({Event::Kind::Interrupted, 0, {}});
    const std::vector<Event> events = mailbox.Receive(nullptr);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events.front().kind, Event::Kind::TransferEnded);
    EXPECT_EQ(events.back().kind, Event::Kind::Interrupted);
}

TEST(Mailbox, WaitsNoLongerThanItIsTold)
{
    Mailbox mailbox;
    constexpr std::chrono::milliseconds atOnce(0);
    EXPECT_TRUE(mailbox.Receive(&atOnce).empty());
}
