#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CaughtLog.h"
#include "Expectation.h"
#include "Fleet.h"
#include "Tables.h"
#include "Utils.h"

namespace {

using testing::ElementsAre;
using testing::Ge;
using testing::SizeIs;
using Strings = std::vector<std::string>;

// Devices that draw the given seconds, one after the other.
Devices Drawing(std::vector<std::uint32_t> seconds)
{
    return [seconds = std::move(seconds), next = std::size_t{0}](const Bounds&) mutable {
        return Draw{0, seconds.at(next++)};
    };
}

DevicesOfLine Repeatable()
{
    return [](std::uint32_t line) { return RepeatableDevices(1 + line); };
}

Strings LinesOf(std::istream& text)
{
    Strings lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

// What the document has between <!-- name --> and <!-- end -->.
Strings TableInDocument(const std::string& name)
{
    std::ifstream document(VORTAN_PACING_DOCUMENT);
    const Strings lines = LinesOf(document);
    const auto begin = std::find(lines.begin(), lines.end(), "<!-- " + name + " -->");
    const auto end = std::find(begin, lines.end(), "<!-- end -->");
    return begin == end ? Strings() : Strings(begin + 1, end);
}

Strings CellsOf(const std::string& line)
{
    std::istringstream text(line);
    std::string bar;
    std::getline(text, bar, '|');
    Strings cells;
    for (std::string cell; std::getline(text, cell, '|');) {
        cells.push_back(cell.substr(1, cell.size() - 2));
    }
    return cells;
}

std::uint32_t NumberIn(const std::string& cell)
{
    return static_cast<std::uint32_t>(std::stoul(cell));
}

template <typename Function, typename... Arguments>
Strings Printed(Function print, const Arguments&... arguments)
{
    std::stringstream out;
    print(out, arguments...);
    return LinesOf(out);
}

// The document's table has the head that the program prints for no lines, and so many lines below.
void ExpectTable(const std::string& name, const Strings& head, std::size_t lines)
{
    const Strings table = TableInDocument(name);
    ASSERT_THAT(head, SizeIs(2));
    ASSERT_THAT(table, SizeIs(2 + lines)) << name;
    EXPECT_EQ(table[0], head[0]);
    EXPECT_EQ(table[1], head[1]);
}

}  // namespace

TEST(PacingSimulation, RequestsAreCountedInTheSecondInWhichTheyAreSent)
{
    const Counts counts = RequestsBySecond(6, {10, 14}, Drawing({10, 12, 12, 14, 12, 14}));
    EXPECT_THAT(counts, ElementsAre(1U, 0U, 3U, 0U, 2U));
    EXPECT_EQ(Peak(counts), 3U);
}

TEST(PacingSimulation, ARequestOutsideTheBoundsIsNotPassedOver)
{
    EXPECT_THROW(RequestsBySecond(1, {10, 14}, Drawing({15})), std::out_of_range);
    EXPECT_THROW(RequestsBySecond(1, {10, 14}, Drawing({9})), std::out_of_range);
}

TEST(PacingSimulation, APercentileIsTheLeastCountThatSoManySecondsDoNotExceed)
{
    const Counts counts = {5, 0, 3, 1};
    EXPECT_EQ(Percentile(counts, 1), 0U);
    EXPECT_EQ(Percentile(counts, 25), 0U);
    EXPECT_EQ(Percentile(counts, 26), 1U);
    EXPECT_EQ(Percentile(counts, 75), 3U);
    EXPECT_EQ(Percentile(counts, 76), 5U);
    EXPECT_EQ(Percentile(counts, 100), 5U);
}

TEST(PacingSimulation, The99thPercentileLeavesOutOneSecondOfAHundred)
{
    Counts counts(200, 1);
    counts[17] = 8;
    counts[130] = 9;
    EXPECT_EQ(Percentile(counts, 99), 1U);
    counts[42] = 7;
    EXPECT_EQ(Percentile(counts, 99), 7U);
}

TEST(PacingSimulation, ADeviceDrawsWhatTheLibraryDrawsForItsSeed)
{
    CaughtLog log;
    const std::uint32_t drawn = VORTAN_MW::UTILS::RandomNumberGenerator(5, 4000000)();
    const std::string message = log.Lines().at(0).message;
    const auto seed = NumberIn(message.substr(message.rfind(' ')));
    EXPECT_EQ(DrawFrom(seed, {5, 4000000}).seconds, drawn);
    EXPECT_EQ(DrawFrom(seed, {5, 4000000}).seed, seed);
}

TEST(PacingSimulation, DevicesOfOneSeedAskInTheSameSecond)
{
    const Counts counts = RequestsBySecond(50, {0, 3599}, DevicesOfFewSeeds(1, 1));
    EXPECT_EQ(Peak(counts), 50U);
}

TEST(PacingSimulation, TheWaitWrapsAboveTheLargestBoundThatTheDocumentNames)
{
    EXPECT_EQ(WaitOf(4294967), 4294967000U);
    EXPECT_EQ(WaitOf(4294968), 704U);
}

// Four devices in a window of two seconds: one second gets 0 to 4 of them with probabilities of
// 1, 4, 6, 4 and 1 sixteenths.
TEST(PacingSimulation, TheExpectationIsTheBinomialOne)
{
    const Expectation expectation(4, 2);
    EXPECT_EQ(expectation.Mean(), 2);
    EXPECT_EQ(expectation.Percentile99(), 4U);
    EXPECT_EQ(expectation.Peak(), 3U);
    EXPECT_NEAR(expectation.ChanceOfAnyAbove(0), 1 - std::pow(1.0 / 16, 2), 1e-12);
    EXPECT_NEAR(expectation.ChanceOfAnyAbove(2), 1 - std::pow(11.0 / 16, 2), 1e-12);
    EXPECT_EQ(expectation.ChanceOfAnyAbove(4), 0);
}

TEST(PacingSimulation, WithoutAWindowAllAreExpectedAtOnce)
{
    const Expectation expectation(1000, 1);
    EXPECT_EQ(expectation.Percentile99(), 1000U);
    EXPECT_EQ(expectation.Peak(), 1000U);
    EXPECT_EQ(expectation.ChanceOfAnyAbove(999), 1);
}

TEST(PacingSimulation, TheRuleKeepsEveryFleetWithinTheCapacity)
{
    for (const std::uint32_t fleet : {1000U, 100000U, 10000000U}) {
        for (const std::uint32_t capacity : {10U, 30U, 100U, 1000U, 10000U}) {
            const Expectation expectation(fleet, WindowFor(fleet, capacity));
            EXPECT_LE(expectation.Peak(), capacity) << fleet;
        }
    }
}

TEST(PacingSimulation, TheDocumentShowsTheColumnsThatAreWritten)
{
    const std::vector<std::uint32_t> none;
    ExpectTable("fleets", Printed(PrintFleets, none, none, Repeatable()), 18);
    ExpectTable("rule", Printed(PrintRule, 1U, none, Repeatable()), 6);
    ExpectTable("seeds", Printed(PrintSeeds, 1U, 1U, std::vector<Seeding>()), 6);
    ExpectTable("bounds", Printed(PrintBounds, 1U, std::vector<Bounds>(), Repeatable()), 8);
}

TEST(PacingSimulation, TheDocumentShowsWhatIsSimulated)
{
    const std::vector<std::uint32_t> fleets = {10000};
    const std::vector<std::uint32_t> windows = {60};
    const Strings table = TableInDocument("fleets");
    const Strings printed = Printed(PrintFleets, fleets, windows, Repeatable());
    ASSERT_THAT(table, SizeIs(Ge(3)));
    EXPECT_EQ(table[2], printed.at(2));
}

TEST(PacingSimulation, TheFiguresInTheDocumentAreNearWhatIsExpected)
{
    const Strings table = TableInDocument("fleets");
    ASSERT_THAT(table, SizeIs(Ge(3)));
    for (std::size_t i = 2; i < table.size(); ++i) {
        const Strings cells = CellsOf(table[i]);
        ASSERT_THAT(cells, SizeIs(7)) << table[i];
        const Expectation expected(NumberIn(cells[0]), NumberIn(cells[1]));
        EXPECT_EQ(NumberIn(cells[4]), expected.Percentile99()) << table[i];
        EXPECT_EQ(NumberIn(cells[6]), expected.Peak()) << table[i];
        const double spread = 4 + std::sqrt(expected.Mean());
        EXPECT_NEAR(NumberIn(cells[3]), expected.Percentile99(), spread) << table[i];
        EXPECT_NEAR(NumberIn(cells[5]), expected.Peak(), spread) << table[i];
    }
}
