#pragma once

#include <TransferObserver.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "base/ExitStatus.h"

namespace VORTAN_TRANSFER {

constexpr long HttpNotModified = 304;

// What became of one source.
struct Outcome
{
    ExitStatus status = AllSucceeded;
    VORTAN_MW::KIT::Category category = VORTAN_MW::KIT::Category::Success;
    std::string cause;                 // if it did not succeed
    std::string note;                  // what to know of a success
    std::optional<long> httpStatus;    // if there was an answer that has one
    std::uint64_t received = 0;        // bytes of the body
    std::uint64_t sent = 0;            // bytes of the request's body
    std::uint32_t attempts = 0;        // 0: it was never begun
    std::chrono::microseconds time{};  // from the request to the end

    // The server answered that the client has the current version: there is nothing to write.
    bool IsNotModified() const;
};

// Of a source that was never requested.
Outcome WithoutTransfer(ExitStatus status, const std::string& cause);

// "succeeded" or the like, for people.
std::string ResultName(const Outcome& outcome);

// "name-not-found" or the like, for scripts.
std::string CategoryName(VORTAN_MW::KIT::Category category);

// What the program exits with after a transfer that failed for this reason. httpStatus: 0 if there
// was none.
ExitStatus StatusOf(VORTAN_MW::KIT::Category category, long httpStatus);

// What it exits with after sources that ended like this.
ExitStatus Combined(ExitStatus one, ExitStatus other);

// 0 if no time has passed.
double BytesPerSecond(std::uint64_t bytes, std::chrono::microseconds time);

}  // namespace VORTAN_TRANSFER
