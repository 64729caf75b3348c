#include "report/Outcome.h"

namespace VORTAN_TRANSFER {

bool Outcome::IsNotModified() const
{
    return status == AllSucceeded && httpStatus == HttpNotModified;
}

Outcome WithoutTransfer(ExitStatus status, const std::string& cause)
{
    Outcome outcome;
    outcome.status = status;
    outcome.cause = cause;
    return outcome;
}

std::string ResultName(const Outcome& outcome)
{
    switch (outcome.status) {
        case AllSucceeded:
            return outcome.IsNotModified() ? "not modified" : "succeeded";
        case CannotWrite:
            return "not written";
        case Interrupted:
            return "interrupted";
        default:
            return "failed";
    }
}

double BytesPerSecond(std::uint64_t bytes, std::chrono::microseconds time)
{
    const double seconds = std::chrono::duration<double>(time).count();
    return seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
}

}  // namespace VORTAN_TRANSFER
