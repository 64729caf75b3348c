#pragma once

namespace VORTAN_TRANSFER {

// What the program exits with. --help tells the user. The numbers up to 8 are those of wget.
enum ExitStatus : int
{
    AllSucceeded = 0,
    TransferFailed = 1,  // for a reason that has no number, or sources failed for several reasons
    WrongArguments = 2,
    CannotWrite = 3,  // also because a file to read has no end
    NetworkFailed = 4,
    TlsFailed = 5,
    NotAuthorized = 6,     // HTTP status 401 or 407
    ProtocolViolated = 7,  // a response, a redirect or a length is not accepted
    StatusIsError = 8,     // another HTTP status of 400 or above
    TookTooLong = 9,
    WrongContent = 10,  // another hash than the expected one
    Interrupted = 130,
};

}  // namespace VORTAN_TRANSFER
