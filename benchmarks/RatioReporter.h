#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

// One line of the final table: the benchmark "workload/agent" beside "workload/peer".
struct Comparison
{
    std::string workload;
    std::string peer;
    // What the agent's CPU time and its rate should be, as multiples of the peer's.
    std::string cpuAim;
    std::string rateAim;
    // Whose CPU time is the least that the design allows; its multiple of the peer's stands beside
    // the agent's. Empty if there is none.
    std::string floor;
};

// Prints what the console reporter prints, and in the end the ratios of the medians.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    explicit RatioReporter(std::vector<Comparison> comparisons);

    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    struct Medians
    {
        double cpu = 0;
        double real = 0;
    };

    void m_Print(const Comparison& comparison);
    // "-" if it was not measured.
    std::string m_FloorOf(const Comparison& comparison, const Medians& peer) const;

    std::vector<Comparison> m_Comparisons;
    std::map<std::string, Medians> m_Medians;
};
