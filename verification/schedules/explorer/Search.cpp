#include "Search.h"

#include <elf.h>
#include <link.h>

#include <chrono>
#include <cstring>
#include <stdexcept>

namespace EXPLORER {

std::size_t Search::Choose(const Options& options, std::uint64_t state)
{
    if (m_Depth < m_Path.size()) {
        return m_Path[m_Depth++].chosen;
    }
    int preemptions = 0;
    if (!m_Path.empty()) {
        const Decision& last = m_Path.back();
        preemptions = last.preemptions + (last.options.all[last.chosen].preempts ? 1 : 0);
    }
    if (m_Settings.reduce && m_IsKnown(state, preemptions)) {
        return Abandon;
    }
    // The first option never preempts: it is the running thread's, or that one cannot go on.
    m_Path.push_back({options, 0, preemptions});
    ++m_Depth;
    return 0;
}

bool Search::m_IsAllowed(const Decision& decision, std::size_t option) const
{
    return !decision.options.all[option].preempts || decision.preemptions < m_Settings.preemptions;
}

bool Search::m_IsKnown(std::uint64_t state, int preemptions)
{
    const auto [known, isNew] = m_Known.try_emplace(state, preemptions);
    if (!isNew && known->second <= preemptions) {
        return true;
    }
    known->second = preemptions;
    return false;
}

// Changes the last decision that can be made otherwise. Returns false if there is none.
bool Search::m_Advance()
{
    m_Depth = 0;
    while (!m_Path.empty()) {
        Decision& last = m_Path.back();
        while (++last.chosen < last.options.count) {
            if (m_IsAllowed(last, last.chosen)) {
                return true;
            }
        }
        m_Path.pop_back();
    }
    return false;
}

Search::Report Search::Run()
{
    using Time = std::chrono::steady_clock;
    const Time::time_point start = Time::now();
    Report report;
    do {
        const RunResult result = scheduler.Run(m_Scenario, *this, nullptr);
        report.steps += result.steps;
        report.schedules += result.end == RunResult::Abandoned ? 0 : 1;
        report.abandoned += result.end == RunResult::Abandoned ? 1 : 0;
        report.seconds = std::chrono::duration<double>(Time::now() - start).count();
        if (result.end == RunResult::Completed) {
            report.outcomes.insert(result.state);
        } else if (result.end == RunResult::Failed) {
            report.failure = result.failure;
            for (const Decision& decision : m_Path) {
                report.failed.choices.push_back(decision.chosen);
            }
            return report;
        }
        if (report.schedules + report.abandoned >= m_Settings.mostSchedules ||
            report.seconds > m_Settings.mostSeconds) {
            report.ended = !m_Advance();
            return report;
        }
    } while (m_Advance());
    return report;
}

std::size_t Replay::Choose(const Options& options, std::uint64_t)
{
    const std::size_t position = m_Position++;
    if (position >= m_Schedule.choices.size()) {
        return 0;
    }
    const std::size_t choice = m_Schedule.choices[position];
    m_Faithful = m_Faithful && choice < options.count;
    return choice < options.count ? choice : 0;
}

std::string Schedule::Text(const Scenario& scenario) const
{
    std::string text = std::string(scenario.name) + "/" + BuildId() + "/";
    const char* separator = "";
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (choices[i] != 0) {
            text += separator + std::to_string(i) + "=" + std::to_string(choices[i]);
            separator = ",";
        }
    }
    return text;
}

Schedule Schedule::Parse(const std::string& text, const Scenario*& scenario)
{
    const std::size_t first = text.find('/');
    const std::size_t second = text.find('/', first + 1);
    if (first == std::string::npos || second == std::string::npos) {
        throw std::invalid_argument("a replay string has the form SCENARIO/BUILD/DECISIONS");
    }
    scenario = Scenario::Find(text.substr(0, first));
    if (scenario == nullptr) {
        throw std::invalid_argument("there is no scenario " + text.substr(0, first));
    }
    const std::string build = text.substr(first + 1, second - first - 1);
    if (build != BuildId()) {
        throw std::invalid_argument("the replay string is of build " + build + ", this is build " +
                                    BuildId() + ": search again");
    }
    Schedule schedule;
    const char* at = text.c_str() + second + 1;
    while (*at != '\0') {
        char* end = nullptr;
        const std::size_t position = std::strtoul(at, &end, 10);
        const std::size_t choice = *end == '=' ? std::strtoul(end + 1, &end, 10) : 0;
        if (choice == 0 || position < schedule.choices.size() || position > 100000 ||
            (*end != ',' && *end != '\0')) {
            throw std::invalid_argument(std::string("these are no decisions: ") + at);
        }
        schedule.choices.resize(position);
        schedule.choices.push_back(choice);
        at = *end == ',' ? end + 1 : end;
    }
    return schedule;
}

namespace {

// Reads the identifier that the linker made of the program's contents.
int ReadBuildId(dl_phdr_info* info, std::size_t, void* text)
{
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& header = info->dlpi_phdr[i];
        if (header.p_type != PT_NOTE) {
            continue;
        }
        std::uintptr_t at = info->dlpi_addr + header.p_vaddr;
        const std::uintptr_t end = at + header.p_memsz;
        while (at + sizeof(ElfW(Nhdr)) <= end) {
            const auto* const note = reinterpret_cast<const ElfW(Nhdr)*>(at);
            at += sizeof *note + (note->n_namesz + 3U) / 4U * 4U;
            if (note->n_type == NT_GNU_BUILD_ID) {
                static const char digits[] = "0123456789abcdef";
                const auto* const bytes = reinterpret_cast<const unsigned char*>(at);
                for (int byte = 0; byte < 6; ++byte) {
                    *static_cast<std::string*>(text) += digits[bytes[byte] >> 4U];
                    *static_cast<std::string*>(text) += digits[bytes[byte] & 15U];
                }
                return 1;
            }
            at += (note->n_descsz + 3U) / 4U * 4U;
        }
    }
    return 1;  // the program comes first
}

}  // namespace

std::string BuildId()
{
    std::string text;
    dl_iterate_phdr(&ReadBuildId, &text);
    return text;
}

}  // namespace EXPLORER
