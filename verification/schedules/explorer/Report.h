#pragma once

#include "Scheduler.h"

namespace EXPLORER {

// Runs a scenario and prints what each thread does, and where in the sources.
RunResult PrintRun(const Scenario& scenario, Chooser& chooser);

}  // namespace EXPLORER
