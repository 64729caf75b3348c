#pragma once

#include <string>

#include "TransferObserver.h"

namespace VORTAN_MW {
namespace KIT {

struct TransferOutcome::Data
{
    Category category = Category::Success;
    long httpStatus = 0;
    std::string sentence;
};

struct TransferEvent::Data
{
    Kind kind = Kind::Attempt;
    std::uint32_t attempt = 0;
    std::uint64_t delivered = 0;
    std::int64_t expected = -1;
    std::uint64_t uploaded = 0;
    long httpStatus = 0;
    std::chrono::milliseconds delay{0};
    TransferOutcome::Data outcome;
    bool isKept = false;
    std::chrono::microseconds nameLookup{0};
    std::chrono::microseconds connect{0};
    std::chrono::microseconds tls{0};
    std::chrono::microseconds firstByte{0};
    std::chrono::microseconds total{0};

private:
    friend class TransferEvent;
    friend class EventAccess;

    const TransferOutcome* shown = nullptr;
};

// How the kit makes events.
class EventAccess
{
public:
    using OutcomeData = TransferOutcome::Data;
    using EventData = TransferEvent::Data;

    static void Report(ITransferObserver& observer, EventData& data)
    {
        TransferOutcome outcome;
        outcome.m_Data = &data.outcome;
        data.shown = &outcome;
        TransferEvent event;
        event.m_Data = &data;
        observer.OnEvent(event);
    }
};

using Outcome = EventAccess::OutcomeData;
using EventRecord = EventAccess::EventData;

}  // namespace KIT
}  // namespace VORTAN_MW
