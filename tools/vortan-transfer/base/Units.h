#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace VORTAN_TRANSFER {

// For numbers: what is longer than 63 characters is cut.
template <typename... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

// "1.5 MiB"
std::string Size(double bytes);

// "1:02:03", to the second
std::string Duration(double seconds);

// "1.250 s", and as above from a minute up
std::string ShortDuration(double seconds);

}  // namespace VORTAN_TRANSFER
