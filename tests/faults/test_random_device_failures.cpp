// The system's source of random numbers fails: the exception ends the process.

#include <FileReaderFactory.h>
#include <gmock/gmock.h>

#include <random>
#include <stdexcept>

#include "IndexedBytes.h"
#include "TemporaryFolder.h"
#include "Trial.h"

using testing::ElementsAre;
using testing::Pair;
using VORTAN_MW::ITransferHandler;

namespace {

CallCount s_Calls;

void ThrowIfItFails(const std::string& operation)
{
    if (s_Calls.Fails(operation)) {
        throw std::runtime_error("no entropy");
    }
}

const Fault failingRandomDevice = {[](long number) { s_Calls.Arm(number); },
                                   [] { return s_Calls.Disarm(); }, [] { return 0L; }, true,
                                   "no entropy"};

Scenario DelayedTransfer(const TemporaryFolder& folder)
{
    Scenario scenario{
        {}, &Make<VORTAN_MW::FileReaderFactory>, folder.FileWith(IndexedBytes(BodyLength))};
    scenario.pattern.url = scenario.nextUrl;
    scenario.pattern.randomDelay = ITransferHandler::Configuration::RandomDelay{0, 0};
    return scenario;
}

}  // namespace

// What std::random_device consists of in the C++ library, in its place. NOLINTBEGIN: the names
void std::random_device::_M_init(const std::string&)
{
    ThrowIfItFails("random_device");
}

void std::random_device::_M_fini() {}

std::random_device::result_type std::random_device::_M_getval()
{
    ThrowIfItFails("random_device::operator()");
    return 4;
}
// NOLINTEND

TEST(RandomDeviceFailures, EndTheProcessWhenARandomDelayIsDrawn)
{
    const TemporaryFolder folder;
    EXPECT_THAT(FailEach(DelayedTransfer(folder), failingRandomDevice),
                ElementsAre(Pair("nothing", "success"), Pair("random_device", "ends the process"),
                            Pair("random_device::operator()", "ends the process")));
}

TEST(RandomDeviceFailures, AreOfNoAccountToTransfersWithoutARandomDelay)
{
    const TemporaryFolder folder;
    Scenario scenario = DelayedTransfer(folder);
    scenario.pattern.randomDelay = boost::none;
    scenario.pattern.fixedDelay = 0;
    EXPECT_THAT(FailEach(scenario, failingRandomDevice), ElementsAre(Pair("nothing", "success")));
}
