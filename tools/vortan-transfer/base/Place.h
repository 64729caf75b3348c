#pragma once

#include <optional>
#include <string>

namespace VORTAN_TRANSFER {

// What the name of an output leads to.
struct Place
{
    // The open descriptor that the name stands for, if it does: -, /dev/stderr, /dev/fd/3 and links
    // to them.
    std::optional<int> descriptor;
    // Otherwise the path behind all symbolic links. There need not be a file.
    std::string path;
};

// Touches no file. A circle of links leads to one of them.
Place FindPlace(const std::string& target);

}  // namespace VORTAN_TRANSFER
