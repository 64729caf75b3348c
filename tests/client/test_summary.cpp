#include <gtest/gtest.h>

#include "base/Units.h"
#include "report/Summary.h"

using namespace VORTAN_TRANSFER;

namespace {

using std::chrono::microseconds;
using Lines = std::vector<std::string>;

const std::vector<Job> TwoJobs = {{{"http://host/a", nullptr, ""}, "a"},
                                  {{"b\n", nullptr, ""}, "b"}};

Outcome Transferred(ExitStatus status, std::uint64_t bytes, microseconds time)
{
    Outcome outcome = WithoutTransfer(status, "cause");
    outcome.received = bytes;
    outcome.time = time;
    return outcome;
}

}  // namespace

TEST(SummaryTable, TellsOfEachSourceAndOfAll)
{
    const std::vector<Outcome> outcomes = {
        Transferred(AllSucceeded, 3 << 20, microseconds(1500000)),
        Transferred(TransferFailed, 0, microseconds(2000))};
    EXPECT_EQ(SummaryTable(TwoJobs, outcomes, microseconds(3000000), Palette(false)),
              (Lines{"result       bytes     time       rate  source",
                     "succeeded  3.0 MiB  1.500 s  2.0 MiB/s  http://host/a",
                     "failed         0 B  0.002 s          -  b\\n",
                     "1 of 2     3.0 MiB  3.000 s  1.0 MiB/s  total"}));
}

TEST(SummaryTable, TellsWhatWasNotWrittenAndWhatWasInterrupted)
{
    const Lines lines =
        SummaryTable(TwoJobs, {Transferred(CannotWrite, 1, {}), Transferred(Interrupted, 1, {})},
                     {}, Palette(false));
    EXPECT_EQ(lines[1], "not written    1 B  0.000 s     -  http://host/a");
    EXPECT_EQ(lines[2], "interrupted    1 B  0.000 s     -  b\\n");
    EXPECT_EQ(lines[3], "0 of 2         2 B  0.000 s     -  total");
}

TEST(SummaryTable, CountsWhatIsNotModifiedAsASuccess)
{
    Outcome notModified = Transferred(AllSucceeded, 0, {});
    notModified.httpStatus = 304;
    const Lines lines = SummaryTable(TwoJobs, {notModified, notModified}, {}, Palette(false));
    EXPECT_EQ(lines[1], "not modified    0 B  0.000 s     -  http://host/a");
    EXPECT_EQ(lines[3], "2 of 2          0 B  0.000 s     -  total");
}

TEST(SummaryTable, PaintsTheResultsOnly)
{
    const Lines lines = SummaryTable(
        TwoJobs, {Transferred(AllSucceeded, 1, {}), Transferred(TransferFailed, 1, {})}, {},
        Palette(true));
    EXPECT_EQ(lines[0], "result     bytes     time  rate  source");
    EXPECT_EQ(lines[1], "\033[32msucceeded\033[0m    1 B  0.000 s     -  http://host/a");
    EXPECT_EQ(lines[2], "\033[31mfailed   \033[0m    1 B  0.000 s     -  b\\n");
    EXPECT_EQ(lines[3], "\033[31m1 of 2   \033[0m    2 B  0.000 s     -  total");
}

TEST(ShortDuration, TellsMillisecondsBelowAMinute)
{
    EXPECT_EQ(ShortDuration(0), "0.000 s");
    EXPECT_EQ(ShortDuration(59.9994), "59.999 s");
    EXPECT_EQ(ShortDuration(59.9996), "1:00");
    EXPECT_EQ(ShortDuration(3723), "1:02:03");
}
