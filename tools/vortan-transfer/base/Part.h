#pragma once

#include <sys/types.h>

#include <string>

#include "base/FileDescriptor.h"

namespace VORTAN_TRANSFER {

// A partial file beside a target: ".NAME.NUMBER.part". The program that writes it holds a lock on
// it, which the system releases when the program is killed.
//
//     RemoveStaleParts("out");
//     Part part = MakePart("out", 0666);
struct Part
{
    FileDescriptor file;  // for writing
    std::string path;
};

// Makes a file that was not there before, and locks it. mode is as for open(). What fails throws
// std::system_error.
Part MakePart(const std::string& target, mode_t mode);

// Removes what killed programs have left of the target. What cannot be removed stays.
void RemoveStaleParts(const std::string& target);

}  // namespace VORTAN_TRANSFER
