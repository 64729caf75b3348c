#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace VORTAN_TRANSFER {

// An object whose members stay in the order in which they were set.
using Json = nlohmann::ordered_json;

// One line for programs. It is plain ASCII, so that it is valid wherever it goes; bytes that are no
// UTF-8 are replaced by U+FFFD.
std::string LineOf(const Json& json);

}  // namespace VORTAN_TRANSFER
