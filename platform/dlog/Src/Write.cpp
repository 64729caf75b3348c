#include "Write.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace VORTAN_MW {
namespace DLOG {

namespace {

// Held from the first to the last byte of a line: a pipe, for one, takes a long line in pieces.
std::mutex oneLineAtATime;

// A program may have made the descriptor, which it shares, non-blocking.
void WaitUntilReady(int descriptor)
{
    pollfd ready = {descriptor, POLLOUT, 0};
    poll(&ready, 1, -1);
}

}  // namespace

bool WriteWhole(int descriptor, std::string_view text)
{
    const std::lock_guard<std::mutex> lock(oneLineAtATime);
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            WaitUntilReady(descriptor);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace DLOG
}  // namespace VORTAN_MW
