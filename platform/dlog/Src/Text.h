#pragma once

#include <string>
#include <string_view>

namespace VORTAN_MW {
namespace DLOG {

// Returns text as it can stand in one line of a log, so that nobody who has a say in a message can
// forge a line or drive a terminal: control characters, and those that turn the direction of text,
// are written out as \n, \r or \x1b, but a tab stays. Colour sequences stay too or are left out.
std::string ReadableText(std::string_view text, bool keepColours);

// The beginning of a line: local time, thread, letter of the level and tag.
std::string LineStart(int priority, std::string_view tag);

}  // namespace DLOG
}  // namespace VORTAN_MW
