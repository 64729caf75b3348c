#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Scheduler.h"

namespace EXPLORER {

// The decisions of one run: at the given ones another option than the first was chosen.
//
// As text: SCENARIO/BUILD/POSITION=OPTION,POSITION=OPTION... The build identifies the program.
struct Schedule
{
    std::vector<std::size_t> choices;

    std::string Text(const Scenario& scenario) const;
    // Throws std::invalid_argument, with a text for the user, if the text is not one of this build.
    static Schedule Parse(const std::string& text, const Scenario*& scenario);
};

// Follows a schedule; beyond its end, each decision is for the first option.
class Replay : public Chooser
{
public:
    explicit Replay(Schedule schedule) : m_Schedule(std::move(schedule)) {}
    std::size_t Choose(const Options& options, std::uint64_t state) override;
    // Whether each decision was there to be made.
    bool IsFaithful() const { return m_Faithful && m_Position >= m_Schedule.choices.size(); }

private:
    Schedule m_Schedule;
    std::size_t m_Position = 0;
    bool m_Faithful = true;
};

// Runs a scenario under one schedule after the other, depth first, until there are no others with
// so few preemptions.
//
// If it is to reduce, it goes on from each state with each number of preemptions only once. What
// has happened, without the order of independent steps, determines a thread's further steps: so the
// schedules that are left out would only repeat, in another order, what others did.
class Search : public Chooser
{
public:
    struct Settings
    {
        int preemptions = 2;
        bool reduce = true;
        std::uint64_t mostSchedules = UINT64_MAX;
        double mostSeconds = 1e9;
    };

    struct Report
    {
        std::uint64_t schedules = 0;
        std::uint64_t abandoned = 0;  // they went on from a state that was known
        std::uint64_t steps = 0;
        double seconds = 0;
        bool ended = true;  // within the limits
        std::string failure;
        Schedule failed;
        // Identifies each complete run, but for the order of independent steps.
        std::unordered_set<std::uint64_t> outcomes;
    };

    Search(const Scenario& scenario, const Settings& settings)
        : m_Scenario(scenario), m_Settings(settings)
    {}

    Report Run();
    std::size_t Choose(const Options& options, std::uint64_t state) override;

private:
    struct Decision
    {
        Options options;
        std::size_t chosen;
        int preemptions;  // before it
    };

    bool m_IsAllowed(const Decision& decision, std::size_t option) const;
    bool m_IsKnown(std::uint64_t state, int preemptions);
    bool m_Advance();

    const Scenario& m_Scenario;
    const Settings m_Settings;
    std::vector<Decision> m_Path;
    std::size_t m_Depth = 0;
    std::unordered_map<std::uint64_t, int> m_Known;  // by state: the fewest preemptions before it
};

// Identifies this program.
std::string BuildId();

}  // namespace EXPLORER
