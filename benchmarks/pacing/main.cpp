// Simulates what a server gets when a whole fleet of devices asks at once, or tries again after an
// outage, and prints one of the tables of docs/pacing.md.

#include <CLI/CLI.hpp>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "Fleet.h"
#include "Tables.h"
#include "Utils.h"

namespace {

// The seed is told in the log and nowhere else. Devices are simulated by several threads.
thread_local std::uint32_t t_LoggedSeed = 0;

// A device as it is: a generator for one draw, seeded by the system's random device.
Draw DrawAsADeviceDoes(const Bounds& bounds)
{
    const std::uint32_t seconds = VORTAN_MW::UTILS::RandomNumberGenerator(bounds.min, bounds.max)();
    return {t_LoggedSeed, seconds};
}

constexpr std::uint32_t Million = 1000000;
constexpr std::uint32_t Minute = 60;
constexpr std::uint32_t Hour = 60 * Minute;
constexpr std::uint32_t Day = 24 * Hour;

constexpr std::uint32_t LargestUnwrapped = 4294967;
constexpr std::uint32_t Largest = 4294967295;

void Fleets(const DevicesOfLine& devices)
{
    PrintFleets(std::cout, {Million / 100, Million / 10, Million},
                {Minute, 10 * Minute, Hour, 6 * Hour, Day, 7 * Day}, devices);
}

void Rule(const DevicesOfLine& devices)
{
    PrintRule(std::cout, Million, {25, 100, 250, 1000, 5000, 20000}, devices);
}

void Seeds(const DevicesOfLine&)
{
    PrintSeeds(std::cout, Million, Hour,
               {{"the system's random device", DrawAsADeviceDoes},
                {"evenly distributed, 32 bits", RepeatableDevices(1)},
                {"0, 1, 2, ...", ConsecutiveDevices()},
                {"16 bits of chance", DevicesOfFewSeeds(1U << 16, 1)},
                {"8 bits of chance", DevicesOfFewSeeds(1U << 8, 1)},
                {"all the same", DevicesOfFewSeeds(1, 1)}});
}

void Limits(const DevicesOfLine& devices)
{
    PrintBounds(std::cout, Million / 10,
                {{0, Hour - 1},
                 {0, LargestUnwrapped},
                 {LargestUnwrapped, LargestUnwrapped},
                 {LargestUnwrapped + 1, LargestUnwrapped + 1},
                 {LargestUnwrapped + 1, LargestUnwrapped + Hour},
                 {LargestUnwrapped - 999, LargestUnwrapped + 1000},
                 {0, Largest},
                 {Minute, 0}},
                devices);
}

void Hours(const DevicesOfLine& devices)
{
    PrintHours(std::cout, Million, {0, 6 * Million}, devices(0));
}

constexpr std::uint32_t OutageFleet = Million / 10;
constexpr std::uint32_t OutageCapacity = 5000;

const std::vector<Retrying> Retryings = {
    {"after 10 s", [](std::uint32_t) { return FixedDelay(std::chrono::seconds(10)); }},
    {"after 30 s", [](std::uint32_t) { return FixedDelay(std::chrono::seconds(30)); }},
    {"after 60 s", [](std::uint32_t) { return FixedDelay(std::chrono::seconds(60)); }},
    {"as the kit does", [](std::uint32_t devices) { return KitsRule(devices, 1); }},
};

void Outages(const DevicesOfLine&)
{
    PrintOutages(std::cout,
                 {{OutageFleet, Minute, OutageCapacity},
                  {OutageFleet, 10 * Minute, OutageCapacity},
                  {OutageFleet, Hour, OutageCapacity}},
                 Retryings);
}

void Seconds(const DevicesOfLine&)
{
    PrintRecovery(std::cout, {OutageFleet, 10 * Minute, OutageCapacity}, 10 * Minute, Retryings);
}

const std::map<std::string, std::function<void(const DevicesOfLine&)>> Tables = {
    {"fleets", Fleets}, {"rule", Rule},       {"seeds", Seeds},    {"bounds", Limits},
    {"hours", Hours},   {"outages", Outages}, {"seconds", Seconds}};

}  // namespace

// Takes the platform log's place, drops every line and keeps the number that it ends with.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the device's.
extern "C" __attribute__((visibility("default"))) int __dlog_print(int, int, const char*,
                                                                   const char* format, ...)
{
    std::va_list pieces;
    va_start(pieces, format);
    va_arg(pieces, const char*);  // the file
    va_arg(pieces, const char*);  // the function
    va_arg(pieces, int);          // the line
    const char* const message = va_arg(pieces, const char*);
    va_end(pieces);
    const char* const number = std::strrchr(message, ' ');
    t_LoggedSeed = static_cast<std::uint32_t>(std::strtoul(number, nullptr, 10));
    return 0;
}

int main(int argc, char* argv[])
{
    std::string table;
    std::uint32_t origin = 1;
    bool asDevicesDo = false;
    CLI::App app("Simulates a fleet of devices that are asked at once and wait for a random time.");
    app.add_option("table", table,
                   "What to print: fleets, rule, seeds, bounds, hours, outages or seconds")
        ->required()
        ->check(CLI::IsMember(Tables));
    app.add_option("--origin", origin, "Where the seeds of the devices begin; 1 if not given");
    app.add_flag("--system", asDevicesDo, "Let the system seed every device, as on a device");
    CLI11_PARSE(app, argc, argv);

    Tables.at(table)([origin, asDevicesDo](std::uint32_t line) {
        return asDevicesDo ? Devices(DrawAsADeviceDoes) : RepeatableDevices(origin + line);
    });
    return std::cout.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
}
