#pragma once

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
    std::string cause;                 // if it did not succeed
    std::optional<long> httpStatus;    // if there was an answer that has one
    std::uint64_t received = 0;        // bytes of the body
    std::chrono::microseconds time{};  // from the request to the end

    // The server answered that the client has the current version: there is nothing to write.
    bool IsNotModified() const;
};

// Of a source that was never requested.
Outcome WithoutTransfer(ExitStatus status, const std::string& cause);

// "succeeded" or the like.
std::string ResultName(const Outcome& outcome);

// 0 if no time has passed.
double BytesPerSecond(std::uint64_t bytes, std::chrono::microseconds time);

}  // namespace VORTAN_TRANSFER
