#pragma once

#include <cstddef>
#include <string>

#include "options/Arguments.h"
#include "report/Outcome.h"

namespace VORTAN_TRANSFER {

// What became of a job, as a line for programs: a JSON object.
std::string JsonLineOf(std::size_t index, const Job& job, const Outcome& outcome);

}  // namespace VORTAN_TRANSFER
