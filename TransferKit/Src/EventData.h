#pragma once

#include <memory>
#include <string>
#include <utility>

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
    std::string redirectTarget;
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
        const TransferOutcome outcome = s_View(data.outcome);
        data.shown = &outcome;
        TransferEvent event;
        event.m_Data = &data;
        observer.OnEvent(event);
    }

    // Calls show with an outcome that lives for the call.
    template <typename Function>
    static void Show(const OutcomeData& data, Function show)
    {
        show(s_View(data));
    }

    // An outcome that keeps what it shows.
    static TransferOutcome Make(OutcomeData data)
    {
        return TransferOutcome(std::make_shared<const OutcomeData>(std::move(data)));
    }

    // A copy, to be reported later.
    static EventData Copy(const TransferEvent& event) { return *event.m_Data; }

private:
    static TransferOutcome s_View(const OutcomeData& data)
    {
        return TransferOutcome(std::shared_ptr<const OutcomeData>(std::shared_ptr<void>(), &data));
    }
};

using Outcome = EventAccess::OutcomeData;
using EventRecord = EventAccess::EventData;

}  // namespace KIT
}  // namespace VORTAN_MW
