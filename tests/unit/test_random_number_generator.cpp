#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "CaughtLog.h"
#include "Utils.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using VORTAN_MW::UTILS::RandomNumberGenerator;

// Yields the given outputs, and counts how many were taken.
class ScriptedEngine
{
public:
    explicit ScriptedEngine(std::vector<std::uint32_t> outputs) : m_Outputs(std::move(outputs)) {}

    std::uint32_t operator()() { return m_Outputs.at(m_Taken++); }
    std::size_t Taken() const { return m_Taken; }

private:
    std::vector<std::uint32_t> m_Outputs;
    std::size_t m_Taken = 0;
};

// The value drawn for a range from one output.
std::uint32_t DrawnFrom(std::uint32_t output, std::uint32_t min, std::uint32_t max)
{
    ScriptedEngine engine({output});
    return RandomNumberGenerator::Draw(engine, min, max - min);
}

std::vector<std::uint32_t> DrawnFromMersenneTwister(std::uint32_t seed, std::uint32_t min,
                                                    std::uint32_t max, std::size_t count)
{
    std::mt19937 engine(seed);
    std::vector<std::uint32_t> values;
    for (std::size_t i = 0; i < count; ++i) {
        values.push_back(RandomNumberGenerator::Draw(engine, min, max - min));
    }
    return values;
}

// The number that the constructor's line ends with.
std::uint32_t SeedOf(const LogLine& line)
{
    return static_cast<std::uint32_t>(std::stoul(line.message.substr(line.message.rfind(' ') + 1)));
}

constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max();

}  // namespace

TEST(RandomNumberGenerator, ConstructionLogsBoundsAndSeed)
{
    const CaughtLog log;
    const RandomNumberGenerator generator(3, 4000000000);
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_THAT(log.Lines().front().Summary(),
                MatchesRegex("D RandomNumberGenerator: min: 3 max: 4000000000 seed: [0-9]+"));
    EXPECT_EQ(log.Lines().front().file, "Utils.h");
}

TEST(RandomNumberGenerator, TheSeedInTheLogTellsWhatIsDrawn)
{
    const CaughtLog log;
    RandomNumberGenerator generator(10, 1000009);
    const std::vector<std::uint32_t> expected =
        DrawnFromMersenneTwister(SeedOf(log.Lines().front()), 10, 1000009, 3);
    EXPECT_EQ((std::vector<std::uint32_t>{generator(), generator(), generator()}), expected);
}

TEST(RandomNumberGenerator, EachConstructionTakesASeedOfTheSystem)
{
    const CaughtLog log;
    for (int i = 0; i < 8; ++i) {
        const RandomNumberGenerator generator(0, 1);
    }
    const std::vector<LogLine> lines = log.Lines();
    bool differ = false;
    for (const LogLine& line : lines) {
        differ = differ || SeedOf(line) != SeedOf(lines.front());
    }
    EXPECT_TRUE(differ);
}

// Outputs of the Mersenne twister that were published for these seeds.
TEST(RandomNumberGenerator, TheFullRangeGivesTheEnginesOwnOutputs)
{
    EXPECT_THAT(DrawnFromMersenneTwister(5489, 0, largest, 3),
                ElementsAre(3499211612U, 581869302U, 3890346734U));
    EXPECT_THAT(DrawnFromMersenneTwister(42, 0, largest, 3),
                ElementsAre(1608637542U, 3421126067U, 4083286876U));
}

TEST(RandomNumberGenerator, AnOutputIsScaledDownAndShiftedToTheRange)
{
    // 100 buckets of 42949672 outputs each: 3499211612, 581869302 and 3890346734 divided by that.
    EXPECT_THAT(DrawnFromMersenneTwister(5489, 0, 99, 3), ElementsAre(81U, 13U, 90U));
    EXPECT_THAT(DrawnFromMersenneTwister(5489, 1000, 1099, 3), ElementsAre(1081U, 1013U, 1090U));
}

TEST(RandomNumberGenerator, EachBucketIsAsWideAsTheNext)
{
    // Ten buckets of 429496729 outputs each.
    EXPECT_EQ(DrawnFrom(0, 5, 14), 5U);
    EXPECT_EQ(DrawnFrom(429496728, 5, 14), 5U);
    EXPECT_EQ(DrawnFrom(429496729, 5, 14), 6U);
    EXPECT_EQ(DrawnFrom(4294967289, 5, 14), 14U);
}

TEST(RandomNumberGenerator, OutputsBeyondTheLastBucketAreDrawnAgain)
{
    ScriptedEngine engine({4294967290, 4294967295, 4294967291, 429496729});
    EXPECT_EQ(RandomNumberGenerator::Draw(engine, 5, 9), 6U);
    EXPECT_EQ(engine.Taken(), 4U);
}

TEST(RandomNumberGenerator, ARangeOfHalfTheNumbersRejectsTheOtherHalf)
{
    // 2^31 buckets of one output each.
    ScriptedEngine engine({2147483648, largest, 2147483647});
    EXPECT_EQ(RandomNumberGenerator::Draw(engine, 0, 2147483647), 2147483647U);
    EXPECT_EQ(engine.Taken(), 3U);
}

TEST(RandomNumberGenerator, EqualBoundsGiveThatBound)
{
    EXPECT_EQ(DrawnFrom(0, 7, 7), 7U);
    EXPECT_EQ(DrawnFrom(4294967294, 7, 7), 7U);
    EXPECT_EQ(DrawnFrom(4294967294, largest, largest), largest);
}

TEST(RandomNumberGenerator, EqualBoundsTakeAnotherOutputForTheLargest)
{
    ScriptedEngine engine({largest, 4294967294});
    EXPECT_EQ(RandomNumberGenerator::Draw(engine, 7, 0), 7U);
    EXPECT_EQ(engine.Taken(), 2U);
}

TEST(RandomNumberGenerator, TheFullRangeRejectsNothing)
{
    EXPECT_EQ(DrawnFrom(largest, 0, largest), largest);
    EXPECT_EQ(DrawnFrom(0, 0, largest), 0U);
}

TEST(RandomNumberGenerator, BoundsInTheWrongOrderWrapAround)
{
    // From 9 up to 2^32 - 1 and on from 0 to 3: a range of 4294967290, one output a bucket.
    EXPECT_EQ(DrawnFrom(0, 9, 3), 9U);
    EXPECT_EQ(DrawnFrom(4294967286, 9, 3), largest);
    EXPECT_EQ(DrawnFrom(4294967287, 9, 3), 0U);
    EXPECT_EQ(DrawnFrom(4294967290, 9, 3), 3U);
    ScriptedEngine engine({4294967291, 1});
    EXPECT_EQ(RandomNumberGenerator::Draw(engine, 9, 4294967290), 10U);
}

TEST(RandomNumberGenerator, BoundsThatFollowEachOtherInTheWrongOrderAreTheFullRange)
{
    // The raw output is not shifted: the range is as long as it can be.
    EXPECT_EQ(DrawnFrom(17, 5, 4), 17U);
}
