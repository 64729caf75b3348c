#pragma once

#include <TransferObserver.h>

#include <string>

#include "base/ExitStatus.h"
#include "options/Source.h"

namespace VORTAN_TRANSFER {

// How a transfer failed, as the kit and the handler tell it.
struct FailedTransfer
{
    VORTAN_MW::KIT::Category category;
    long httpStatus;           // 0: there was none
    std::string sentence;      // the kit's
    std::string redirectedTo;  // the target of the last redirect; empty: there was none
    std::string loggedError;   // what a handler of the library logged last
};

struct Failure
{
    ExitStatus status;
    std::string cause;  // in a few words, with the HTTP status if there is one
};

// What to tell the user. target: the file or stream to which the body went.
Failure FailureOf(const Source& source, const std::string& target, const FailedTransfer& failed);

}  // namespace VORTAN_TRANSFER
