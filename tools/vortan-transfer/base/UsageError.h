#pragma once

#include <stdexcept>

namespace VORTAN_TRANSFER {

// The command line asks for something that cannot be. The text says what, in one line.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

}  // namespace VORTAN_TRANSFER
