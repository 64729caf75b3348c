#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

#include "Fleet.h"
#include "Outage.h"

// What docs/pacing.md shows, as tables in Markdown. The devices of each line are other ones: they
// come from a function that is given the line's number, and lines are simulated side by side.
using DevicesOfLine = std::function<Devices(std::uint32_t line)>;

// How often a line is simulated where the spread between runs is shown.
constexpr int Rounds = 3;

// Each fleet with each window, beside what pure chance would give.
void PrintFleets(std::ostream& out, const std::vector<std::uint32_t>& fleets,
                 const std::vector<std::uint32_t>& windows, const DevicesOfLine& devicesOfLine);

// What the rule of thumb makes of each capacity.
void PrintRule(std::ostream& out, std::uint32_t fleet, const std::vector<std::uint32_t>& capacities,
               const DevicesOfLine& devicesOfLine);

struct Seeding
{
    const char* name;
    Devices devices;
};

// The same fleet and window with seeds from different sources.
void PrintSeeds(std::ostream& out, std::uint32_t fleet, std::uint32_t window,
                const std::vector<Seeding>& seedings);

// What becomes of bounds where milliseconds are counted with 32 bits.
void PrintBounds(std::ostream& out, std::uint32_t fleet, const std::vector<Bounds>& bounds,
                 const DevicesOfLine& devicesOfLine);

// Requests in each hour, "hour requests" in each line, for the drawing of what a wrap does.
void PrintHours(std::ostream& out, std::uint32_t fleet, const Bounds& bounds,
                const Devices& devices);

// How the devices of a fleet try again. Makes the waits of one simulated run.
struct Retrying
{
    const char* name;
    std::function<WaitAfterFailure(std::uint32_t devices)> make;
};

// The hour after each outage, for each way to try again.
void PrintOutages(std::ostream& out, const std::vector<Outage>& outages,
                  const std::vector<Retrying>& retryings);

// For the drawing: "second requests requests ..." for each second after the outage, with one column
// for each way to try again.
void PrintRecovery(std::ostream& out, const Outage& outage, std::uint32_t seconds,
                   const std::vector<Retrying>& retryings);
