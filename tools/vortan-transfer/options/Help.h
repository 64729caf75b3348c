#pragma once

namespace VORTAN_TRANSFER {

// What --help prints, at most 80 columns wide. A test compares it with the options and the man
// page.
extern const char* const HelpText;

}  // namespace VORTAN_TRANSFER
