#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace VORTAN_TRANSFER {

// The bytes of a file, or of standard input for "-". Throws UsageError that begins with the
// option's name; shown is the option's value.
std::string ReadInput(const std::string& path, const std::string& option, const std::string& shown);

struct InputLine
{
    std::string place;  // "list.txt:3"
    std::string text;   // without the line's end
};

// The lines of a file, or of standard input for "-". Throws UsageError that begins with the
// option's name if it cannot be read, is larger than 16 MiB or has a zero byte.
std::vector<InputLine> ReadLines(const std::string& path, const std::string& option);

}  // namespace VORTAN_TRANSFER
