#include "report/Report.h"

#include "base/Text.h"
#include "report/JsonLine.h"
#include "report/Summary.h"

namespace VORTAN_TRANSFER {

Report::Report(const Arguments& arguments, Console& console)
    : m_Arguments(arguments),
      m_Console(console),
      m_ShowsProgress(s_WantsProgress(arguments)),
      m_Outcomes(arguments.jobs.size())
{
    if (m_Arguments.json) {
        m_Objects.emplace(Output::StandardOutput);
    }
}

void Report::Add(std::size_t job, const Outcome& outcome)
{
    const Job& told = m_Arguments.jobs[job];
    const std::string name = Printable(told.source.text);
    // That all was interrupted has been said once.
    if (outcome.status != AllSucceeded && outcome.status != Interrupted) {
        m_Console.Line(name + ": " + outcome.cause);
    }
    // Of several sources the table says it.
    if (outcome.IsNotModified() && m_Arguments.jobs.size() == 1 && !m_Arguments.quiet) {
        m_Console.Line(name + ": " + ResultName(outcome));
    }
    if (!outcome.note.empty() && !m_Arguments.quiet) {
        m_Console.Line(name + ": " + outcome.note);
    }
    m_Script([&](Output& objects) { objects.Write(JsonLineOf(job, told, outcome)); });
    m_Status = Combined(m_Status, outcome.status);
    m_Outcomes[job] = outcome;
}

void Report::AddUnwritten(const std::string& text)
{
    m_Console.Line(text);
    m_Status = Combined(m_Status, CannotWrite);
}

void Report::Finish()
{
    m_Script([](Output& objects) { objects.Commit(); });
    m_ShowSummary();
}

// Says once that the objects cannot be written.
template <typename Action>
void Report::m_Script(Action action)
{
    if (!m_Objects) {
        return;
    }
    m_Console.ClearProgress();  // both may be on one terminal
    try {
        action(*m_Objects);
    } catch (const OutputError& error) {
        AddUnwritten(error.what());
        m_Objects.reset();
    }
}

void Report::m_ShowSummary()
{
    if (m_Arguments.quiet) {
        return;
    }
    if (m_Arguments.jobs.size() > 1) {
        const auto time = std::chrono::steady_clock::now() - m_Begin;
        m_Console.Table(SummaryTable(m_Arguments.jobs, m_Outcomes,
                                     std::chrono::duration_cast<std::chrono::microseconds>(time),
                                     m_Console.Colours()));
    } else if (m_ShowsProgress && !m_Arguments.json && m_Status == AllSucceeded &&
               !m_Outcomes.front().IsNotModified()) {
        m_Console.Table({SummaryLine(m_Outcomes.front())});
    }
}

bool Report::s_WantsProgress(const Arguments& arguments)
{
    const bool isBodyOnTerminal =
        IsStandardOutputTerminal() && Output::IsStandardOutput(arguments.jobs.front().target);
    return CanShowProgress() && !arguments.quiet && !arguments.verbose && !isBodyOnTerminal;
}

}  // namespace VORTAN_TRANSFER
