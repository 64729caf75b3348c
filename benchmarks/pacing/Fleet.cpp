#include "Fleet.h"

#include <algorithm>
#include <random>

#include "Utils.h"

std::uint32_t WindowOf(const Bounds& bounds)
{
    return bounds.max - bounds.min + 1;
}

Draw DrawFrom(std::uint32_t seed, const Bounds& bounds)
{
    std::mt19937 engine(seed);
    return {seed, VORTAN_MW::UTILS::RandomNumberGenerator::Draw(engine, bounds.min,
                                                                bounds.max - bounds.min)};
}

Devices RepeatableDevices(std::uint32_t origin)
{
    return [seeds = std::mt19937(origin)](const Bounds& bounds) mutable {
        return DrawFrom(static_cast<std::uint32_t>(seeds()), bounds);
    };
}

Devices ConsecutiveDevices()
{
    return [seed = std::uint32_t{0}](const Bounds& bounds) mutable {
        return DrawFrom(seed++, bounds);
    };
}

Devices DevicesOfFewSeeds(std::uint32_t seeds, std::uint32_t origin)
{
    std::mt19937 engine(origin);
    std::vector<std::uint32_t> choice(seeds);
    std::generate(choice.begin(), choice.end(),
                  [&engine] { return static_cast<std::uint32_t>(engine()); });
    return [choice = std::move(choice), engine](const Bounds& bounds) mutable {
        return DrawFrom(choice[engine() % choice.size()], bounds);
    };
}

std::uint32_t WaitOf(std::uint32_t seconds)
{
    return seconds * 1000U;
}

Counts RequestsBySecond(std::uint32_t count, const Bounds& bounds, const Devices& devices)
{
    Counts counts(WindowOf(bounds));
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t second = WaitOf(devices(bounds).seconds) / 1000;
        ++counts.at(second - bounds.min);
    }
    return counts;
}

std::uint32_t Peak(const Counts& counts)
{
    return *std::max_element(counts.begin(), counts.end());
}

std::uint32_t Percentile(Counts counts, unsigned percent)
{
    const std::uint64_t rank = (counts.size() * std::uint64_t{percent} + 99) / 100;
    const auto at = counts.begin() + static_cast<std::ptrdiff_t>(rank - 1);
    std::nth_element(counts.begin(), at, counts.end());
    return *at;
}
