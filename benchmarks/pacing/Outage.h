#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "Fleet.h"

// A server that fails while a whole fleet of devices fetches from it, and returns.
struct Outage
{
    std::uint32_t devices;
    std::uint32_t seconds;   // how long the server fails every request
    std::uint32_t capacity;  // requests a second that it answers from then on; it fails the others
};

// How long a device waits after a request that failed at a time. Devices are counted from 0, and
// times from when the outage began.
using WaitAfterFailure =
    std::function<std::chrono::milliseconds(std::uint32_t device, std::chrono::milliseconds now)>;

// Every device waits for the same time.
WaitAfterFailure FixedDelay(std::chrono::milliseconds delay);

// Every device has a session of the transfer kit with the kit's default policy, but for the number
// of attempts, which are not limited. When the session's budget ends a transfer, the device waits
// for five minutes and begins another one. The seeds of the devices follow from origin.
WaitAfterFailure KitsRule(std::uint32_t devices, std::uint32_t origin);

struct Recovery
{
    std::uint64_t meanwhile = 0;  // requests during the outage
    Counts requests;              // in each second of the hour after it
    std::uint32_t seconds = 0;    // until all devices were answered; 3600 if they were not
};

// The transfers of all devices break in the first second of the outage. Each device sends requests
// until one is answered.
Recovery Simulate(const Outage& outage, const WaitAfterFailure& waitAfterFailure);
