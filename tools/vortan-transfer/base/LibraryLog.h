#pragma once

#include <string>

// The library tells a client no more of a failure than that there was one; the reason goes to its
// log. This program therefore stands between the two.
namespace VORTAN_TRANSFER {

enum class LogColours
{
    Kept,
    TakenOut,
};

// From here on the log's lines go on to the platform's log.
void LetLibraryLogThrough(LogColours colours);

// Lets the URL of a request appear like this in the log: without its password. Called before the
// first request.
void ShowInLog(const std::string& url, const std::string& shown);

// The last error that the library logged on the calling thread; empty if there was none.
std::string LastLibraryError();

}  // namespace VORTAN_TRANSFER
