#pragma once

#include <string>

struct iovec;

namespace VORTAN_MW {
namespace DLOG {

// Loads libsystemd. It is not linked: loading it with the libraries that it needs takes more
// instructions than all else that the agent adds to libcurl at a program's start. Returns the
// reason if it cannot be loaded, else nothing. Call it once, before the first entry is sent.
std::string LoadJournal();

// As sd_journal_sendv.
int SendToJournal(const iovec* fields, int count);

}  // namespace DLOG
}  // namespace VORTAN_MW
