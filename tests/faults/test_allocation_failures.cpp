// Every allocation of a whole request fails once.

#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <QXCurlEasyHandlerFactory.h>
#include <gmock/gmock.h>

#include <map>
#include <string>

#include "FailingAllocator.h"
#include "IndexedBytes.h"
#include "ServerTest.h"
#include "Trial.h"

using testing::AnyOf;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;

namespace {

const Fault failingAllocation = {&FAILING_ALLOCATOR::Arm, &FAILING_ALLOCATOR::Disarm,
                                 &FAILING_ALLOCATOR::Live, false, "std::bad_alloc"};

// A part that passes for the whole is no success.
std::string Ending(const Outcome& outcome)
{
    if (std::string(outcome.ending) != "over") {
        return outcome.ending;
    }
    if (!outcome.success) {
        return "failure";
    }
    return outcome.length == BodyLength ? "success" : "A PART PASSED OFF AS WHOLE";
}

// The number of requests that ended in each way.
std::map<std::string, int> FailEachAllocationOf(const Scenario& scenario)
{
    std::map<std::string, int> endings;
    for (long number = 1; !::testing::Test::HasFailure(); ++number) {
        const Outcome outcome = Try(scenario, failingAllocation, number);
        const std::string ending = Ending(outcome);
        if (outcome.failed[0] == '\0') {
            EXPECT_EQ(ending, "success");
            break;
        }
        EXPECT_THAT(ending, AnyOf("refused", "failure", "success", "ends the process")) << number;
        ++endings[ending];
    }
    return endings;
}

class AllocationFailures : public ServerTest<OddServer>
{
protected:
    static Scenario OverHttp(std::unique_ptr<ITransferHandlerFactory> (*makeFactory)(),
                             bool segmented)
    {
        Scenario scenario{{}, makeFactory, Url("/bytes/" + std::to_string(BodyLength))};
        scenario.pattern.url = scenario.nextUrl;
        scenario.pattern.method = ITransferHandler::Configuration::HttpMethod::EhttpGet;
        scenario.pattern.headers = {{"A-header-that-is-too-long-for-a-short-string", "a value"}};
        scenario.pattern.segmented = segmented;
        return scenario;
    }

    static Scenario OfAFile(const TemporaryFolder& folder)
    {
        Scenario scenario{
            {}, &Make<VORTAN_MW::FileReaderFactory>, folder.FileWith(IndexedBytes(BodyLength))};
        scenario.pattern.url = scenario.nextUrl;
        return scenario;
    }

    // successes: how many allocations a transfer can do without.
    static void ExpectEachToBeAnswered(const Scenario& scenario, int successes = 0)
    {
        std::map<std::string, int> endings = FailEachAllocationOf(scenario);
        for (const auto& [ending, count] : endings) {
            RecordProperty(ending, count);
        }
        EXPECT_GT(endings["refused"], 0);
        EXPECT_GT(endings["ends the process"], 0);
        EXPECT_EQ(endings["success"], successes);
    }
};

}  // namespace

TEST_F(AllocationFailures, OfAFileTransferEachIsAnswered)
{
    const TemporaryFolder folder;
    ExpectEachToBeAnswered(OfAFile(folder));
}

TEST_F(AllocationFailures, OfADelayedTransferEachIsAnswered)
{
    const TemporaryFolder folder;
    Scenario scenario = OfAFile(folder);
    scenario.pattern.randomDelay = ITransferHandler::Configuration::RandomDelay{0, 0};
    ExpectEachToBeAnswered(scenario);
}

// Without room for the whole announced body, room is made for what arrives.
TEST_F(AllocationFailures, OfAPlainDownloadEachIsAnswered)
{
    ExpectEachToBeAnswered(OverHttp(&Make<VORTAN_MW::CurlEasyHandlerFactory>, false), 1);
}

TEST_F(AllocationFailures, OfASegmentedDownloadEachIsAnswered)
{
    ExpectEachToBeAnswered(OverHttp(&Make<VORTAN_MW::CurlEasyHandlerFactory>, true));
}

TEST_F(AllocationFailures, OfAPlainDownloadThroughTheWrapperEachIsAnswered)
{
    ExpectEachToBeAnswered(OverHttp(&Make<VORTAN_MW::QXCurlEasyHandlerFactory>, false));
}

TEST_F(AllocationFailures, OfASegmentedDownloadThroughTheWrapperEachIsAnswered)
{
    ExpectEachToBeAnswered(OverHttp(&Make<VORTAN_MW::QXCurlEasyHandlerFactory>, true));
}
