#include "report/Summary.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

#include "base/Text.h"
#include "base/Units.h"

namespace VORTAN_TRANSFER {

namespace {

// All columns but the last one, which is as wide as it needs to be.
constexpr std::size_t Columns = 4;

struct Row
{
    std::array<std::string, Columns> cells;  // result, bytes, time, rate
    std::string source;
    bool isGood;
};

Row MakeRow(const std::string& result, std::uint64_t bytes, std::chrono::microseconds time,
            const std::string& source, bool isGood)
{
    const double rate = BytesPerSecond(bytes, time);
    return {{result, Size(static_cast<double>(bytes)),
             ShortDuration(std::chrono::duration<double>(time).count()),
             rate > 0 ? Size(rate) + "/s" : "-"},
            source,
            isGood};
}

Row TotalOf(const std::vector<Outcome>& outcomes, std::chrono::microseconds time)
{
    std::uint64_t bytes = 0;
    std::size_t succeeded = 0;
    for (const Outcome& outcome : outcomes) {
        bytes += outcome.received;
        succeeded += outcome.status == AllSucceeded ? 1 : 0;
    }
    return MakeRow(Format("%zu of %zu", succeeded, outcomes.size()), bytes, time, "total",
                   succeeded == outcomes.size());
}

std::array<std::size_t, Columns> WidthsOf(const std::vector<Row>& rows)
{
    std::array<std::size_t, Columns> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < Columns; ++column) {
            widths[column] = std::max(widths[column], row.cells[column].size());
        }
    }
    return widths;
}

// The first cell is to the left of its column, the numbers are to the right of theirs.
std::string Line(const Row& row, const std::array<std::size_t, Columns>& widths,
                 const Palette& palette)
{
    std::string result = row.cells[0];
    result.resize(widths[0], ' ');
    std::string line = row.isGood ? palette.Good(result) : palette.Bad(result);
    for (std::size_t column = 1; column < Columns; ++column) {
        line += std::string(2 + widths[column] - row.cells[column].size(), ' ') + row.cells[column];
    }
    return line + "  " + row.source;
}

}  // namespace

std::vector<std::string> SummaryTable(const std::vector<Job>& jobs,
                                      const std::vector<Outcome>& outcomes,
                                      std::chrono::microseconds time, const Palette& palette)
{
    const Row heading = {{"result", "bytes", "time", "rate"}, "source", true};
    std::vector<Row> rows{heading};
    for (std::size_t job = 0; job < jobs.size(); ++job) {
        const Outcome& outcome = outcomes[job];
        rows.push_back(MakeRow(ResultName(outcome), outcome.received, outcome.time,
                               Printable(jobs[job].source.text), outcome.status == AllSucceeded));
    }
    rows.push_back(TotalOf(outcomes, time));
    const auto widths = WidthsOf(rows);
    std::vector<std::string> lines{Line(heading, widths, Palette(false))};
    std::transform(rows.begin() + 1, rows.end(), std::back_inserter(lines),
                   [&](const Row& row) { return Line(row, widths, palette); });
    return lines;
}

std::string SummaryLine(const Outcome& outcome)
{
    const bool isUpload = outcome.sent > outcome.received;
    const std::uint64_t bytes = isUpload ? outcome.sent : outcome.received;
    const double rate = BytesPerSecond(bytes, outcome.time);
    std::string line = (isUpload ? "sent " : "") + Size(static_cast<double>(bytes)) + " in " +
                       ShortDuration(std::chrono::duration<double>(outcome.time).count());
    if (rate > 0) {
        line += ", " + Size(rate) + "/s";
    }
    return outcome.attempts > 1 ? line + Format(", %u attempts", outcome.attempts) : line;
}

}  // namespace VORTAN_TRANSFER
