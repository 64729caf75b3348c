#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include "base/Console.h"
#include "base/ExitStatus.h"
#include "base/Output.h"
#include "options/Arguments.h"
#include "report/Outcome.h"

namespace VORTAN_TRANSFER {

// Tells what becomes of the jobs as it was asked for: each failure, objects for scripts, a table or
// a line.
class Report
{
public:
    // Both must outlive the report.
    Report(const Arguments& arguments, Console& console);

    // A job has ended. To be told once of each.
    void Add(std::size_t job, const Outcome& outcome);

    // Something else could not be written, as told in the text.
    void AddUnwritten(const std::string& text);

    // All jobs have ended.
    void Finish();

    // What the program exits with, from all that was told.
    ExitStatus Status() const { return m_Status; }

    // Whether a person watches, and nothing else has the terminal.
    bool ShowsProgress() const { return m_ShowsProgress; }

private:
    template <typename Action>
    void m_Script(Action action);
    void m_ShowSummary();
    static bool s_WantsProgress(const Arguments& arguments);

    const Arguments& m_Arguments;
    Console& m_Console;
    const bool m_ShowsProgress;
    const std::chrono::steady_clock::time_point m_Begin = std::chrono::steady_clock::now();
    std::vector<Outcome> m_Outcomes;  // of each job
    ExitStatus m_Status = AllSucceeded;
    // Takes the objects for scripts as long as they are asked for and can be written.
    std::optional<Output> m_Objects;
};

}  // namespace VORTAN_TRANSFER
