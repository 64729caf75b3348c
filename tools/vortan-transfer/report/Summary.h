#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "base/Palette.h"
#include "options/Arguments.h"
#include "report/Outcome.h"

namespace VORTAN_TRANSFER {

// A table, line by line, that tells what became of each job. outcomes has one for each; time is
// what all took together.
std::vector<std::string> SummaryTable(const std::vector<Job>& jobs,
                                      const std::vector<Outcome>& outcomes,
                                      std::chrono::microseconds time, const Palette& palette);

// The same of a single job that succeeded: "3.0 MiB in 1.500 s, 2.0 MiB/s".
std::string SummaryLine(const Outcome& outcome);

}  // namespace VORTAN_TRANSFER
