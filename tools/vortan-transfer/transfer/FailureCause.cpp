#include "transfer/FailureCause.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/Text.h"

namespace VORTAN_TRANSFER {

namespace {

// The words of libcurl or of the wrapper, out of the line that the handler logs about it; or else
// the whole line.
std::string_view ReasonIn(std::string_view libraryError)
{
    constexpr std::string_view beforeWrappers = "Failed to send using QXCurl ";
    if (libraryError.substr(0, beforeWrappers.size()) == beforeWrappers) {
        return libraryError.substr(beforeWrappers.size());
    }
    constexpr std::string_view before = "curl_easy_perform() failed: '";
    constexpr std::string_view after = "', http-code: ";
    if (libraryError.substr(0, before.size()) != before) {
        return libraryError;
    }
    libraryError.remove_prefix(before.size());
    return libraryError.substr(0, libraryError.find(after));
}

std::string CauseOverHttp(long status, std::string_view reason)
{
    std::string statusText = "HTTP status " + std::to_string(status);
    if (IsErrorStatus(status) && (reason.empty() || reason == "HTTP response code said error")) {
        return statusText;
    }
    const std::string cause = reason.empty() ? "the transfer failed" : Printable(reason);
    return status > 0 ? cause + " (" + statusText + ")" : cause;
}

// Whether a file that could not be read makes its readers wait where others end, as /proc/kmsg
// does: it then has a say in what poll() reports, which for other files is always both.
bool IsEndless(int file)
{
    pollfd ready = {file, POLLIN | POLLOUT, 0};
    return poll(&ready, 1, 0) >= 0 && ready.revents != ready.events;
}

// The library does not tell why it could not read a file: tries what it tried, but never waits.
Failure FailureOfReading(const std::string& path)
{
    try {
        const FileDescriptor file = OpenFile(path, O_RDONLY | O_NONBLOCK);
        struct stat status = {};
        if (fstat(file.Get(), &status) == 0 && !S_ISREG(status.st_mode)) {
            return {TransferFailed,
                    S_ISDIR(status.st_mode) ? "Is a directory" : "Is not a regular file"};
        }
        if (IsEndless(file.Get())) {
            return {CannotWrite, "Has no end, copy what you need of it to a file first"};
        }
        char byte = 0;
        if (read(file.Get(), &byte, sizeof byte) < 0) {
            ThrowErrno();
        }
        return {TransferFailed, "Cannot be read as a whole"};
    } catch (const std::system_error& error) {
        const int number = error.code().value();
        const std::string advice = number == ENOENT ? WebAddressAdvice(path) : "";
        return {TransferFailed, ErrorText(number) + (advice.empty() ? "" : ". " + advice)};
    }
}

}  // namespace

bool IsErrorStatus(long status)
{
    return status >= 400;
}

Failure FailureOf(const Source& source, const VORTAN_MW::ITransferHandler::Result& result,
                  const std::string& libraryError)
{
    if (!source.handler->speaksHttp) {
        return FailureOfReading(source.url);
    }
    return {TransferFailed,
            CauseOverHttp(result.httpCode ? *result.httpCode : 0, ReasonIn(libraryError))};
}

}  // namespace VORTAN_TRANSFER
