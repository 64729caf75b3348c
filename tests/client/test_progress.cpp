#include <gtest/gtest.h>

#include "report/Progress.h"

using namespace VORTAN_TRANSFER;

namespace {

using std::chrono::milliseconds;

RateMeter::TimePoint At(int milliseconds_)
{
    return RateMeter::TimePoint(milliseconds(milliseconds_));
}

}  // namespace

TEST(ProgressLine, TellsBytesAndRate)
{
    EXPECT_EQ(ProgressLine({0, {}, 0, 1}, 0), "0 B, 0 B/s");
    EXPECT_EQ(ProgressLine({1023, {}, 0, 1}, 1024), "1023 B, 1.0 KiB/s");
    EXPECT_EQ(ProgressLine({1234567, {}, 0, 1}, 1.5 * 1024 * 1024), "1.2 MiB, 1.5 MiB/s");
}

TEST(ProgressLine, NeverShows1024OfAUnit)
{
    EXPECT_EQ(ProgressLine({1048575, {}, 0, 1}, 0), "1.0 MiB, 0 B/s");
}

TEST(ProgressLine, TellsPercentageAndTimeLeftWhenTheLengthIsKnown)
{
    EXPECT_EQ(ProgressLine({512, 2048, 0, 1}, 512), "512 B of 2.0 KiB, 25%, 0:03 left, 512 B/s");
    EXPECT_EQ(ProgressLine({0, 3600 * 1024, 0, 1}, 512),
              "0 B of 3.5 MiB, 0%, 2:00:00 left, 512 B/s");
}

TEST(ProgressLine, TellsNoTimeLeftWhileNothingArrives)
{
    EXPECT_EQ(ProgressLine({512, 2048, 0, 1}, 0), "512 B of 2.0 KiB, 25%, 0 B/s");
}

TEST(ProgressLine, Shows100PercentOnlyAtTheEnd)
{
    EXPECT_EQ(ProgressLine({9999, 10000, 0, 1}, 0), "9.8 KiB of 9.8 KiB, 99%, 0 B/s");
    EXPECT_EQ(ProgressLine({10000, 10000, 0, 1}, 0), "9.8 KiB of 9.8 KiB, 100%, 0 B/s");
}

TEST(ProgressLine, DoesNotTrustALengthThatIsExceededOrNothing)
{
    EXPECT_EQ(ProgressLine({2, 1, 0, 1}, 0), "2 B, 0 B/s");
    EXPECT_EQ(ProgressLine({0, 0, 0, 1}, 0), "0 B, 0 B/s");
}

TEST(ProgressLine, CountsSeveralTransfers)
{
    EXPECT_EQ(ProgressLine({2, {}, 3, 5}, 1), "2 B, 1 B/s, 3 of 5 done");
}

TEST(ProgressLine, FitsIntoATerminalLineWhateverTheNumbers)
{
    const std::uint64_t most = 18446744073709551615U;
    EXPECT_LE(ProgressLine({most - 1, most, 999999, 1000000}, 1e-9).size(), 79U);
    EXPECT_LE(ProgressLine({most / 2, most, 999999, 1000000}, 1e19).size(), 79U);
}

TEST(ProgressLine, KeepsThePercentageLongest)
{
    const Progress progress = {512, 2048, 3, 5};
    EXPECT_EQ(ProgressLine(progress, 512, 60),
              "512 B of 2.0 KiB, 25%, 0:03 left, 512 B/s, 3 of 5 done");
    EXPECT_EQ(ProgressLine(progress, 512, 53), "512 B of 2.0 KiB, 25%, 512 B/s, 3 of 5 done");
    EXPECT_EQ(ProgressLine(progress, 512, 42), "512 B of 2.0 KiB, 25%, 3 of 5 done");
    EXPECT_EQ(ProgressLine(progress, 512, 20), "25%, 3 of 5 done");
    EXPECT_EQ(ProgressLine(progress, 512, 15), "25%");
    EXPECT_EQ(ProgressLine(progress, 512, 1), "25%");
}

TEST(ProgressLine, TellsWhatIsSent)
{
    Progress progress;
    progress.toSend = 2048;
    EXPECT_EQ(ProgressLine(progress, 0), "sent 0 B of 2.0 KiB, 0%, 0 B/s");
    progress.sent = 1024;
    EXPECT_EQ(ProgressLine(progress, 512), "sent 1.0 KiB of 2.0 KiB, 50%, 0:02 left, 512 B/s");
}

TEST(ProgressLine, TellsWhatIsReceivedOnceThatArrivesAfterAnUpload)
{
    Progress progress;
    progress.toSend = 2048;
    progress.sent = 2048;
    progress.received = 10;
    EXPECT_EQ(ProgressLine(progress, 0), "10 B, 0 B/s");
}

TEST(ProgressLine, TellsAWaitInsteadOfARate)
{
    Progress progress = {512, 2048};
    progress.wait = std::chrono::seconds(12);
    EXPECT_EQ(ProgressLine(progress, 512), "512 B of 2.0 KiB, 25%, waiting 12 s");
}

TEST(ProgressLine, TellsASilenceThatLasts)
{
    Progress progress = {512, 2048};
    progress.silence = std::chrono::seconds(2);
    EXPECT_EQ(ProgressLine(progress, 0), "512 B of 2.0 KiB, 25%, 0 B/s");
    progress.silence = std::chrono::seconds(8);
    EXPECT_EQ(ProgressLine(progress, 1), "512 B of 2.0 KiB, 25%, silent for 8 s");
}

TEST(RateMeter, KnowsNoRateFromOneMoment)
{
    RateMeter meter;
    EXPECT_EQ(meter.BytesPerSecond(), 0);
    meter.Add(At(0), 100);
    EXPECT_EQ(meter.BytesPerSecond(), 0);
    meter.Add(At(0), 200);
    EXPECT_EQ(meter.BytesPerSecond(), 0);
}

TEST(RateMeter, DividesBytesByTime)
{
    RateMeter meter;
    meter.Add(At(1000), 100);
    meter.Add(At(3000), 300);
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 100);
}

TEST(RateMeter, ForgetsWhatIsLongAgo)
{
    RateMeter meter;
    meter.Add(At(0), 0);
    for (int second = 100; second <= 110; ++second) {
        meter.Add(At(second * 1000), 1000000 + static_cast<std::uint64_t>(second) * 10);
    }
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 10);
}

TEST(RateMeter, BridgesALongSilence)
{
    RateMeter meter;
    meter.Add(At(0), 0);
    meter.Add(At(100000), 1000);
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 10);
}
