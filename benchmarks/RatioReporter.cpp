#include "RatioReporter.h"

#include <cstdio>
#include <utility>

namespace {

constexpr char Row[] = "%-19s %-17s %8s %8s %8s %8s %8s\n";

std::string Ratio(double value, double reference)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", value / reference);
    return text;
}

}  // namespace

RatioReporter::RatioReporter(std::vector<Comparison> comparisons)
    : ConsoleReporter(OO_Tabular), m_Comparisons(std::move(comparisons))
{}

void RatioReporter::ReportRuns(const std::vector<Run>& runs)
{
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.aggregate_name == "median") {
            m_Medians[run.run_name.function_name] = {run.GetAdjustedCPUTime(),
                                                     run.GetAdjustedRealTime()};
        }
    }
}

void RatioReporter::Finalize()
{
    ConsoleReporter::Finalize();
    std::printf("\nThe agent's medians as multiples of the peer's:\n");
    std::printf(Row, "workload", "peer", "CPU time", "floor", "aim", "rate", "aim");
    for (const Comparison& comparison : m_Comparisons) {
        m_Print(comparison);
    }
}

void RatioReporter::m_Print(const Comparison& comparison)
{
    const auto agent = m_Medians.find(comparison.workload + "/agent");
    const auto peer = m_Medians.find(comparison.workload + "/" + comparison.peer);
    if (agent == m_Medians.end() || peer == m_Medians.end()) {
        return;  // filtered out, or failed
    }
    std::printf(Row, comparison.workload.c_str(), comparison.peer.c_str(),
                Ratio(agent->second.cpu, peer->second.cpu).c_str(),
                m_FloorOf(comparison, peer->second).c_str(), comparison.cpuAim.c_str(),
                Ratio(peer->second.real, agent->second.real).c_str(), comparison.rateAim.c_str());
}

std::string RatioReporter::m_FloorOf(const Comparison& comparison, const Medians& peer) const
{
    const auto floor = m_Medians.find(comparison.workload + "/" + comparison.floor);
    return floor == m_Medians.end() ? "-" : Ratio(floor->second.cpu, peer.cpu);
}
