#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "TransferQueue.h"

namespace VORTAN_MW {
namespace KIT {

// An element of an EntryList. It is in one list at most.
struct ListedEntry
{
    ListedEntry* previous = nullptr;
    ListedEntry* next = nullptr;
};

// A list of elements that it does not own. No operation needs memory.
class EntryList
{
public:
    EntryList() { m_Ends.previous = m_Ends.next = &m_Ends; }
    EntryList(const EntryList&) = delete;
    EntryList& operator=(const EntryList&) = delete;

    bool IsEmpty() const { return m_Ends.next == &m_Ends; }
    void PushFront(ListedEntry& entry) { s_Insert(entry, *m_Ends.next); }
    void PushBack(ListedEntry& entry) { s_Insert(entry, m_Ends); }
    // Not from an empty list.
    ListedEntry& PopFront()
    {
        ListedEntry& first = *m_Ends.next;
        Remove(first);
        return first;
    }
    // From whichever list it is in.
    static void Remove(ListedEntry& entry)
    {
        entry.previous->next = entry.next;
        entry.next->previous = entry.previous;
        entry.previous = entry.next = nullptr;
    }

private:
    static void s_Insert(ListedEntry& entry, ListedEntry& before)
    {
        entry.previous = before.previous;
        entry.next = &before;
        before.previous->next = &entry;
        before.previous = &entry;
    }

    ListedEntry m_Ends;
};

// Who waits for a place. Each priority has a line, which those that have begun lead.
class WaitingLines
{
public:
    // In front of those of its priority that have begun too, or have not either.
    void PushFront(ListedEntry& entry, Priority priority, bool hasBegun)
    {
        m_Line(priority, hasBegun).PushFront(entry);
    }
    // Behind them.
    void PushBack(ListedEntry& entry, Priority priority, bool hasBegun)
    {
        m_Line(priority, hasBegun).PushBack(entry);
    }
    bool IsEmpty() const;
    // Of seven calls four take from the highest line, two from the middle one and one from the
    // lowest; a line that is empty leaves its turn to the highest one that is not. Null if all are
    // empty.
    ListedEntry* Pop();

private:
    static constexpr std::size_t PriorityCount = 3;

    EntryList& m_Line(Priority priority, bool hasBegun)
    {
        return m_Lines[2 * static_cast<std::size_t>(priority) + (hasBegun ? 1 : 0)];
    }

    // From those of the lowest priority that have not begun to those of the highest that have.
    std::array<EntryList, 2 * PriorityCount> m_Lines;
    std::size_t m_Turn = 0;
};

}  // namespace KIT
}  // namespace VORTAN_MW
