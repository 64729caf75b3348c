#include <gmock/gmock.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "Outage.h"
#include "Tables.h"

namespace {

using testing::Each;
using testing::IsEmpty;
using testing::Not;

constexpr std::chrono::seconds Delay{30};

struct Row
{
    std::string outage;
    std::string retrying;
    std::uint32_t peak;
};

// The lines between <!-- outages --> and <!-- end --> in the document, without the table's head.
std::vector<Row> RowsInDocument()
{
    std::ifstream document(VORTAN_PACING_DOCUMENT);
    std::vector<Row> rows;
    bool isInside = false;
    for (std::string line; std::getline(document, line);) {
        isInside = line == "<!-- outages -->" || (isInside && line != "<!-- end -->");
        std::istringstream text(line);
        std::vector<std::string> cells;
        for (std::string cell; std::getline(text, cell, '|');) {
            cells.push_back(cell);
        }
        if (isInside && cells.size() == 6 && std::isdigit(cells[1][1]) != 0) {
            rows.push_back({cells[1], cells[2], static_cast<std::uint32_t>(std::stoul(cells[4]))});
        }
    }
    return rows;
}

std::uint32_t PeakAfter(const Outage& outage, const WaitAfterFailure& waitAfterFailure)
{
    return Peak(Simulate(outage, waitAfterFailure).requests);
}

}  // namespace

TEST(OutageSimulation, RequestsAreCountedInTheSecondsAfterTheOutage)
{
    // Four devices, whose transfers break in the first second; the server answers two a second.
    const Recovery recovery = Simulate({4, 60, 2}, FixedDelay(Delay));
    EXPECT_EQ(recovery.meanwhile, 4U);
    EXPECT_EQ(recovery.requests.size(), 3600U);
    EXPECT_EQ(recovery.requests[0], 4U);
    EXPECT_EQ(recovery.requests[30], 2U);
    EXPECT_EQ(std::accumulate(recovery.requests.begin(), recovery.requests.end(), 0U), 6U);
    EXPECT_EQ(recovery.seconds, 31U);
}

TEST(OutageSimulation, DevicesThatAreNeverAnsweredTakeTheWholeHour)
{
    EXPECT_EQ(Simulate({1, 60, 0}, FixedDelay(Delay)).seconds, 3600U);
}

TEST(OutageSimulation, TheKitsRuleNeedsAFifthOfAFixedDelaysPeak)
{
    for (const std::uint32_t seconds : {10U, 60U, 600U, 3600U}) {
        const Outage outage = {2000, seconds, 100};
        const std::uint32_t fixed = PeakAfter(outage, FixedDelay(Delay));
        EXPECT_LE(5 * PeakAfter(outage, KitsRule(outage.devices, 1)), fixed) << seconds;
    }
}

TEST(OutageSimulation, EveryDeviceIsAnsweredAfterAnOutage)
{
    const Recovery recovery = Simulate({2000, 600, 100}, KitsRule(2000, 1));
    EXPECT_LT(recovery.seconds, 3600U);
}

TEST(OutageSimulation, TheDocumentShowsTheColumnsThatAreWritten)
{
    std::stringstream head;
    PrintOutages(head, {}, {});
    std::ifstream document(VORTAN_PACING_DOCUMENT);
    const std::string text(std::istreambuf_iterator<char>(document), {});
    EXPECT_THAT(text, testing::HasSubstr("<!-- outages -->\n" + head.str()));
}

TEST(OutageSimulation, TheDocumentsFiguresKeepTheBound)
{
    std::map<std::string, std::uint32_t> ofTheKit;
    std::map<std::string, std::vector<std::uint32_t>> fixed;
    for (const Row& row : RowsInDocument()) {
        if (row.retrying == " as the kit does ") {
            ofTheKit[row.outage] = row.peak;
        } else {
            fixed[row.outage].push_back(row.peak);
        }
    }
    ASSERT_THAT(ofTheKit, Not(IsEmpty()));
    for (const auto& [outage, peak] : ofTheKit) {
        ASSERT_THAT(fixed[outage], Not(IsEmpty())) << outage;
        EXPECT_THAT(fixed[outage], Each(testing::Ge(5 * peak))) << outage;
    }
}
