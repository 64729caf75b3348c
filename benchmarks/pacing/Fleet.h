#pragma once

#include <cstdint>
#include <functional>
#include <vector>

// Bounds of a random delay in seconds, both included, as a request has them.
struct Bounds
{
    std::uint32_t min;
    std::uint32_t max;
};

// How many seconds the bounds leave to choose from.
std::uint32_t WindowOf(const Bounds& bounds);

struct Draw
{
    std::uint32_t seed;
    std::uint32_t seconds;
};

// Each call is another device that makes one request.
using Devices = std::function<Draw(const Bounds&)>;

// What the library's generator draws when the system gives it this seed.
Draw DrawFrom(std::uint32_t seed, const Bounds& bounds);

// Devices whose seeds are evenly distributed and the same in every run for the same origin.
Devices RepeatableDevices(std::uint32_t origin);
// Devices with the seeds 0, 1, 2, ...
Devices ConsecutiveDevices();
// Devices that have no more than so many different seeds among them.
Devices DevicesOfFewSeeds(std::uint32_t seeds, std::uint32_t origin);

// The wait in milliseconds that the agent makes of a draw. It wraps at 32 bits, as the agent's
// does.
std::uint32_t WaitOf(std::uint32_t seconds);

// Requests in each second.
using Counts = std::vector<std::uint32_t>;

// What a server gets in each second from min to max when so many devices are asked in one instant.
// No wait may be outside: at() throws for it.
Counts RequestsBySecond(std::uint32_t count, const Bounds& bounds, const Devices& devices);

std::uint32_t Peak(const Counts& counts);

// The least count that at least so many per cent (1 to 100) of the seconds do not exceed; seconds
// without a request are seconds, too.
std::uint32_t Percentile(Counts counts, unsigned percent);
