#include "WaitingLines.h"

#include <algorithm>

namespace VORTAN_MW {
namespace KIT {

namespace {

// Spread so that no priority waits for long.
constexpr std::array<Priority, 7> Turns = {Priority::High, Priority::Normal, Priority::High,
                                           Priority::Low,  Priority::High,   Priority::Normal,
                                           Priority::High};

}  // namespace

bool WaitingLines::IsEmpty() const
{
    return std::all_of(m_Lines.begin(), m_Lines.end(),
                       [](const EntryList& line) { return line.IsEmpty(); });
}

ListedEntry* WaitingLines::Pop()
{
    EntryList& begun = m_Line(Turns[m_Turn], true);
    EntryList& turn = begun.IsEmpty() ? m_Line(Turns[m_Turn], false) : begun;
    const auto highest = std::find_if(m_Lines.rbegin(), m_Lines.rend(),
                                      [](const EntryList& line) { return !line.IsEmpty(); });
    if (highest == m_Lines.rend()) {
        return nullptr;
    }
    m_Turn = (m_Turn + 1) % Turns.size();
    return &(turn.IsEmpty() ? *highest : turn).PopFront();
}

}  // namespace KIT
}  // namespace VORTAN_MW
