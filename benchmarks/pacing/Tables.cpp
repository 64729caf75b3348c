#include "Tables.h"

#include <algorithm>
#include <future>
#include <iomanip>
#include <limits>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>

#include "Expectation.h"

namespace {

// The columns of a table, the first one to the left and the figures to the right.
void PrintHead(std::ostream& out, const std::vector<std::string>& columns)
{
    out << '|';
    for (const std::string& column : columns) {
        out << ' ' << column << " |";
    }
    out << "\n|---|";
    for (std::size_t i = 1; i < columns.size(); ++i) {
        out << "---:|";
    }
    out << '\n';
}

template <typename... Cells>
std::string Line(const Cells&... cells)
{
    std::ostringstream line;
    line << '|';
    (static_cast<void>(line << ' ' << cells << " |"), ...);
    line << '\n';
    return line.str();
}

std::string Fixed(double number, int digits)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << number;
    return text.str();
}

std::string Range(std::uint32_t least, std::uint32_t most)
{
    return least == most ? std::to_string(least)
                         : std::to_string(least) + " to " + std::to_string(most);
}

std::string Seconds(std::uint32_t milliseconds)
{
    return Fixed(milliseconds / 1000.0, 3);
}

// Simulates all lines at the same time, and prints them in order.
class Lines
{
public:
    template <typename Function, typename... Arguments>
    void Add(Function&& function, Arguments&&... arguments)
    {
        m_Lines.push_back(std::async(std::launch::async, std::forward<Function>(function),
                                     std::forward<Arguments>(arguments)...));
    }

    std::uint32_t Size() const { return static_cast<std::uint32_t>(m_Lines.size()); }

    void Print(std::ostream& out)
    {
        for (std::future<std::string>& line : m_Lines) {
            out << line.get();
        }
    }

private:
    std::vector<std::future<std::string>> m_Lines;
};

struct Load
{
    std::uint32_t percentile99 = 0;  // of the seconds of all rounds
    std::uint32_t leastPeak = std::numeric_limits<std::uint32_t>::max();
    std::uint32_t mostPeak = 0;
};

Load Simulate(std::uint32_t fleet, std::uint32_t window, int rounds, const Devices& devices)
{
    Load load;
    Counts all;
    for (int i = 0; i < rounds; ++i) {
        const Counts counts = RequestsBySecond(fleet, {0, window - 1}, devices);
        load.leastPeak = std::min(load.leastPeak, Peak(counts));
        load.mostPeak = std::max(load.mostPeak, Peak(counts));
        all.insert(all.end(), counts.begin(), counts.end());
    }
    load.percentile99 = Percentile(std::move(all), 99);
    return load;
}

std::string FleetLine(std::uint32_t fleet, std::uint32_t window, const Devices& devices)
{
    const Expectation expected(fleet, window);
    const Load load = Simulate(fleet, window, Rounds, devices);
    return Line(fleet, window, Fixed(expected.Mean(), 2), load.percentile99,
                expected.Percentile99(), Range(load.leastPeak, load.mostPeak), expected.Peak());
}

std::string RuleLine(std::uint32_t fleet, std::uint32_t capacity, const Devices& devices)
{
    const std::uint32_t window = WindowFor(fleet, capacity);
    const Expectation expected(fleet, window);
    const Load load = Simulate(fleet, window, Rounds, devices);
    return Line(capacity, window, Fixed(expected.Mean(), 0), Range(load.leastPeak, load.mostPeak),
                Fixed(100 * expected.ChanceOfAnyAbove(capacity), 2) + " %");
}

std::string SeedLine(std::uint32_t fleet, std::uint32_t window, const Seeding& seeding)
{
    std::vector<std::uint32_t> seeds;
    const Load load = Simulate(fleet, window, 1, [&](const Bounds& bounds) {
        const Draw draw = seeding.devices(bounds);
        seeds.push_back(draw.seed);
        return draw;
    });
    std::sort(seeds.begin(), seeds.end());
    const auto different = std::unique(seeds.begin(), seeds.end()) - seeds.begin();
    return Line(seeding.name, different, load.percentile99, load.mostPeak);
}

std::string BoundsLine(std::uint32_t fleet, const Bounds& bounds, const Devices& devices)
{
    std::vector<std::uint32_t> waits(fleet);
    std::generate(waits.begin(), waits.end(), [&] { return WaitOf(devices(bounds).seconds); });
    const auto [shortest, longest] = std::minmax_element(waits.begin(), waits.end());
    const auto early = std::count_if(waits.begin(), waits.end(), [&bounds](std::uint32_t wait) {
        return wait < std::uint64_t{bounds.min} * 1000;
    });
    return Line(bounds.min, bounds.max, Seconds(*shortest), Seconds(*longest),
                Fixed(100.0 * static_cast<double>(early) / fleet, 1) + " %");
}

std::string OutageLine(const Outage& outage, const Retrying& retrying)
{
    const Recovery recovery = Simulate(outage, retrying.make(outage.devices));
    return Line(outage.seconds, retrying.name, recovery.meanwhile, Peak(recovery.requests),
                recovery.seconds);
}

}  // namespace

void PrintFleets(std::ostream& out, const std::vector<std::uint32_t>& fleets,
                 const std::vector<std::uint32_t>& windows, const DevicesOfLine& devicesOfLine)
{
    PrintHead(out,
              {"Devices", "Window, s", "Mean", "99 %", "99 %, expected", "Peak", "Peak, expected"});
    Lines lines;
    for (const std::uint32_t fleet : fleets) {
        for (const std::uint32_t window : windows) {
            lines.Add(FleetLine, fleet, window, devicesOfLine(lines.Size()));
        }
    }
    lines.Print(out);
}

void PrintRule(std::ostream& out, std::uint32_t fleet, const std::vector<std::uint32_t>& capacities,
               const DevicesOfLine& devicesOfLine)
{
    PrintHead(out, {"Capacity", "Window, s", "Mean", "Peak", "Chance of more than the capacity"});
    Lines lines;
    for (const std::uint32_t capacity : capacities) {
        lines.Add(RuleLine, fleet, capacity, devicesOfLine(lines.Size()));
    }
    lines.Print(out);
}

void PrintSeeds(std::ostream& out, std::uint32_t fleet, std::uint32_t window,
                const std::vector<Seeding>& seedings)
{
    PrintHead(out, {"Seeds", "Different ones", "99 %", "Peak"});
    Lines lines;
    for (const Seeding& seeding : seedings) {
        lines.Add(SeedLine, fleet, window, seeding);
    }
    lines.Print(out);
}

void PrintBounds(std::ostream& out, std::uint32_t fleet, const std::vector<Bounds>& bounds,
                 const DevicesOfLine& devicesOfLine)
{
    PrintHead(out, {"`min`", "`max`", "Shortest wait, s", "Longest wait, s", "Sooner than `min`"});
    Lines lines;
    for (const Bounds& each : bounds) {
        lines.Add(BoundsLine, fleet, each, devicesOfLine(lines.Size()));
    }
    lines.Print(out);
}

void PrintHours(std::ostream& out, std::uint32_t fleet, const Bounds& bounds,
                const Devices& devices)
{
    const Counts counts = RequestsBySecond(fleet, bounds, devices);
    const auto begin = counts.begin();
    constexpr std::ptrdiff_t hour = 3600;
    const auto size = static_cast<std::ptrdiff_t>(counts.size());
    for (std::ptrdiff_t at = 0; at < size; at += hour) {
        out << at / hour << ' '
            << std::accumulate(begin + at, begin + std::min(at + hour, size), std::uint64_t{0})
            << '\n';
    }
}

void PrintOutages(std::ostream& out, const std::vector<Outage>& outages,
                  const std::vector<Retrying>& retryings)
{
    PrintHead(out, {"Outage, s", "Tries again", "Requests meanwhile", "Peak afterwards",
                    "All answered after, s"});
    Lines lines;
    for (const Outage& outage : outages) {
        for (const Retrying& retrying : retryings) {
            lines.Add(OutageLine, outage, retrying);
        }
    }
    lines.Print(out);
}

void PrintRecovery(std::ostream& out, const Outage& outage, std::uint32_t seconds,
                   const std::vector<Retrying>& retryings)
{
    std::vector<Counts> columns;
    columns.reserve(retryings.size());
    for (const Retrying& retrying : retryings) {
        columns.push_back(Simulate(outage, retrying.make(outage.devices)).requests);
    }
    for (std::uint32_t second = 0; second < seconds; ++second) {
        out << second;
        for (const Counts& column : columns) {
            out << ' ' << column.at(second);
        }
        out << '\n';
    }
}
