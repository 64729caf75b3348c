#include "FailureLog.h"

#include <new>

#include "Log.h"

namespace VORTAN_MW {
namespace KIT {

void LogRetry(const EventRecord& event)
{
    try {
        KIT_LOG(Warn, "Attempt " << event.attempt << " failed, the next begins in "
                                 << event.delay.count() << " ms: " << event.outcome.sentence);
    } catch (const std::bad_alloc&) {
    }
}

void LogFailure(const Outcome& outcome, std::uint32_t attempts)
{
    if (outcome.category == Category::Success ||
        (outcome.category == Category::Cancelled && attempts == 0)) {
        return;
    }
    try {
        KIT_LOG(Error, outcome.sentence << " Attempts: " << attempts);
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace KIT
}  // namespace VORTAN_MW
