#include "report/Outcome.h"

#include <array>
#include <cstddef>

namespace VORTAN_TRANSFER {

using VORTAN_MW::KIT::Category;

namespace {

// By the numbers of the categories.
constexpr std::array<const char*, 24> CategoryNames = {"success",
                                                       "invalid-request",
                                                       "name-not-found",
                                                       "connection-refused",
                                                       "not-connected",
                                                       "tls-not-trusted",
                                                       "tls-failed",
                                                       "timed-out",
                                                       "connection-lost",
                                                       "invalid-response",
                                                       "http-status",
                                                       "too-large",
                                                       "redirect-refused",
                                                       "changed",
                                                       "upload-failed",
                                                       "cancelled",
                                                       "client-stopped",
                                                       "out-of-memory",
                                                       "internal",
                                                       "file-failed",
                                                       "busy",
                                                       "wrong-hash",
                                                       "handler-failed",
                                                       "no-thread"};

}  // namespace

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

std::string CategoryName(Category category)
{
    const auto number = static_cast<std::size_t>(category);
    return number < CategoryNames.size() ? CategoryNames[number] : "unknown";
}

ExitStatus StatusOf(Category category, long httpStatus)
{
    switch (category) {
        case Category::Success:
            return AllSucceeded;
        case Category::NameNotFound:
        case Category::ConnectionRefused:
        case Category::NotConnected:
        case Category::ConnectionLost:
            return NetworkFailed;
        case Category::TlsNotTrusted:
        case Category::TlsFailed:
            return TlsFailed;
        case Category::TimedOut:
            return TookTooLong;
        case Category::InvalidResponse:
        case Category::TooLarge:
        case Category::RedirectRefused:
            return ProtocolViolated;
        case Category::HttpStatus:
            return httpStatus == 401 || httpStatus == 407 ? NotAuthorized : StatusIsError;
        case Category::Changed:
        case Category::WrongHash:
            return WrongContent;
        case Category::FileFailed:
        case Category::Busy:
            return CannotWrite;
        case Category::Cancelled:
            return Interrupted;
        default:
            return TransferFailed;
    }
}

ExitStatus Combined(ExitStatus one, ExitStatus other)
{
    if (one == other || other == AllSucceeded) {
        return one;
    }
    if (one == AllSucceeded) {
        return other;
    }
    for (const ExitStatus first : {Interrupted, CannotWrite}) {
        if (one == first || other == first) {
            return first;
        }
    }
    return TransferFailed;
}

double BytesPerSecond(std::uint64_t bytes, std::chrono::microseconds time)
{
    const double seconds = std::chrono::duration<double>(time).count();
    return seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
}

}  // namespace VORTAN_TRANSFER
