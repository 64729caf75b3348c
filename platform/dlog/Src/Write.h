#pragma once

#include <string_view>

namespace VORTAN_MW {
namespace DLOG {

// Writes all of text, in one piece if the system takes it, and never mixed with that of another
// thread. Waits where the descriptor is not ready. Returns false, with errno set, on an error.
bool WriteWhole(int descriptor, std::string_view text);

}  // namespace DLOG
}  // namespace VORTAN_MW
