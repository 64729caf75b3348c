#include "transfer/FailureCause.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/Password.h"
#include "base/Text.h"
#include "report/Outcome.h"

namespace VORTAN_TRANSFER {

using VORTAN_MW::KIT::Category;

namespace {

// The words of libcurl or of the wrapper, out of the line that the handler logs about it; or else
// the whole line.
std::string_view ReasonIn(std::string_view loggedError)
{
    constexpr std::string_view beforeWrappers = "Failed to send using QXCurl ";
    if (loggedError.substr(0, beforeWrappers.size()) == beforeWrappers) {
        return loggedError.substr(beforeWrappers.size());
    }
    constexpr std::string_view before = "curl_easy_perform() failed: '";
    constexpr std::string_view after = "', http-code: ";
    if (loggedError.substr(0, before.size()) != before) {
        return loggedError;
    }
    loggedError.remove_prefix(before.size());
    return loggedError.substr(0, loggedError.find(after));
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

// The kit's sentence as the end of a line that names the source already: without the host.
std::string Shortened(std::string sentence)
{
    if (!sentence.empty() && sentence.back() == '.') {
        sentence.pop_back();
    }
    const std::size_t host = sentence.rfind(" (host ");
    if (host != std::string::npos && sentence.back() == ')') {
        sentence.erase(host);
    }
    if (!sentence.empty()) {
        sentence.front() = LowerCase(sentence.substr(0, 1)).front();
    }
    return Printable(sentence);
}

// What follows the kit's own words.
std::string DetailIn(const std::string& cause)
{
    const std::size_t colon = cause.find(": ");
    return colon == std::string::npos ? cause : cause.substr(colon + 2);
}

std::string CauseOf(const std::string& target, const FailedTransfer& failed)
{
    std::string cause = Shortened(failed.sentence);
    switch (failed.category) {
        case Category::HttpStatus:
            return "HTTP status " + std::to_string(failed.httpStatus);
        case Category::TlsNotTrusted:
            return cause +
                   "; try --cacert with the server's authority, and check this machine's clock";
        case Category::TlsFailed:
            return cause + "; check the port, and give --cert if the server wants a certificate";
        case Category::TimedOut:
            return "it took longer than --connect-timeout, --silence or --max-time allow";
        case Category::TooLarge:
            return "the response is longer than allowed (--max-filesize for its body)";
        case Category::FileFailed:
            return "cannot write " + Quoted(target) + ": " + DetailIn(cause);
        case Category::Busy:
            return "cannot write " + Quoted(target) + ": " + cause;
        case Category::HandlerFailed:
            return failed.loggedError.empty() ? "the handler failed; -v shows the library's log"
                                              : Printable(ReasonIn(failed.loggedError));
        default:
            return cause;
    }
}

// Of a file that is to be written, the server is no cause.
std::string Preface(const FailedTransfer& failed, ExitStatus status)
{
    return failed.redirectedTo.empty() || status == CannotWrite
               ? ""
               : "redirected to " + Printable(WithoutPassword(failed.redirectedTo)) + ": ";
}

}  // namespace

Failure FailureOf(const Source& source, const std::string& target, const FailedTransfer& failed)
{
    if (!source.handler->speaksHttp && failed.category == Category::HandlerFailed) {
        return FailureOfReading(source.url);
    }
    const ExitStatus status = StatusOf(failed.category, failed.httpStatus);
    return {status, Preface(failed, status) + CauseOf(target, failed)};
}

}  // namespace VORTAN_TRANSFER
