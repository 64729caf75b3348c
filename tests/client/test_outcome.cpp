#include <gtest/gtest.h>

#include "report/Outcome.h"
#include "report/Summary.h"

using namespace VORTAN_TRANSFER;
using VORTAN_MW::KIT::Category;

namespace {

Outcome Succeeded(std::uint64_t received, std::uint64_t sent, std::uint32_t attempts)
{
    Outcome outcome;
    outcome.received = received;
    outcome.sent = sent;
    outcome.attempts = attempts;
    outcome.time = std::chrono::milliseconds(1500);
    return outcome;
}

}  // namespace

TEST(Outcome, EachCategoryHasItsName)
{
    EXPECT_EQ(CategoryName(Category::Success), "success");
    EXPECT_EQ(CategoryName(Category::TlsNotTrusted), "tls-not-trusted");
    EXPECT_EQ(CategoryName(Category::InvalidResponse), "invalid-response");
    EXPECT_EQ(CategoryName(Category::RedirectRefused), "redirect-refused");
    EXPECT_EQ(CategoryName(Category::ClientStopped), "client-stopped");
    EXPECT_EQ(CategoryName(Category::Busy), "busy");
    EXPECT_EQ(CategoryName(Category::NoThread), "no-thread");
    EXPECT_EQ(CategoryName(static_cast<Category>(24)), "unknown");
}

TEST(Outcome, TheExitStatusTellsTheKindOfFailure)
{
    EXPECT_EQ(StatusOf(Category::Success, 0), AllSucceeded);
    EXPECT_EQ(StatusOf(Category::NameNotFound, 0), 4);
    EXPECT_EQ(StatusOf(Category::ConnectionLost, 200), 4);
    EXPECT_EQ(StatusOf(Category::TlsNotTrusted, 0), 5);
    EXPECT_EQ(StatusOf(Category::HttpStatus, 401), 6);
    EXPECT_EQ(StatusOf(Category::HttpStatus, 407), 6);
    EXPECT_EQ(StatusOf(Category::HttpStatus, 404), 8);
    EXPECT_EQ(StatusOf(Category::RedirectRefused, 302), 7);
    EXPECT_EQ(StatusOf(Category::TimedOut, 0), 9);
    EXPECT_EQ(StatusOf(Category::WrongHash, 200), 10);
    EXPECT_EQ(StatusOf(Category::Busy, 0), 3);
    EXPECT_EQ(StatusOf(Category::Cancelled, 0), 130);
    EXPECT_EQ(StatusOf(Category::HandlerFailed, 0), 1);
    EXPECT_EQ(StatusOf(static_cast<Category>(99), 0), 1);
}

TEST(Outcome, SeveralFailuresOfOneKindKeepTheirStatus)
{
    EXPECT_EQ(Combined(AllSucceeded, AllSucceeded), AllSucceeded);
    EXPECT_EQ(Combined(AllSucceeded, TlsFailed), TlsFailed);
    EXPECT_EQ(Combined(TlsFailed, AllSucceeded), TlsFailed);
    EXPECT_EQ(Combined(TlsFailed, TlsFailed), TlsFailed);
}

TEST(Outcome, AWriteThatFailedIsToldBeforeOtherFailures)
{
    EXPECT_EQ(Combined(TlsFailed, NetworkFailed), TransferFailed);
    EXPECT_EQ(Combined(TransferFailed, NetworkFailed), TransferFailed);
    EXPECT_EQ(Combined(CannotWrite, NetworkFailed), CannotWrite);
    EXPECT_EQ(Combined(TookTooLong, CannotWrite), CannotWrite);
    EXPECT_EQ(Combined(CannotWrite, Interrupted), Interrupted);
}

TEST(SummaryLine, TellsBytesTimeAndRate)
{
    EXPECT_EQ(SummaryLine(Succeeded(3 << 20, 0, 1)), "3.0 MiB in 1.500 s, 2.0 MiB/s");
    EXPECT_EQ(SummaryLine(Succeeded(3 << 20, 0, 4)), "3.0 MiB in 1.500 s, 2.0 MiB/s, 4 attempts");
}

TEST(SummaryLine, TellsOfAnUploadWhatWasSent)
{
    EXPECT_EQ(SummaryLine(Succeeded(10, 3 << 20, 1)), "sent 3.0 MiB in 1.500 s, 2.0 MiB/s");
}
