#pragma once

namespace VORTAN_TRANSFER {

// What the program ends with. --help tells the user.
enum ExitStatus : int
{
    AllSucceeded = 0,
    TransferFailed = 1,
    WrongArguments = 2,
    CannotWrite = 3,  // also because a file has no end
    Interrupted = 130,
};

}  // namespace VORTAN_TRANSFER
