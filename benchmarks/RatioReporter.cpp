#include "RatioReporter.h"

#include <cstdio>
#include <utility>

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
    std::printf("\nThe agent's medians as multiples of the peer's:\n%-10s %-20s %8s %8s %8s %8s\n",
                "workload", "peer", "CPU time", "aim", "rate", "aim");
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
    std::printf("%-10s %-20s %8.3f %8s %8.3f %8s\n", comparison.workload.c_str(),
                comparison.peer.c_str(), agent->second.cpu / peer->second.cpu,
                comparison.cpuAim.c_str(), peer->second.real / agent->second.real,
                comparison.rateAim.c_str());
}
