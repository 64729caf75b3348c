#pragma once

#include <string>

namespace VORTAN_TRANSFER {

// The line that --version prints.
std::string VersionLine();

// What a bug report needs beside it: the libraries, what they can do, the certificate authorities
// that are trusted by default, and the system.
std::string VersionDetails();

}  // namespace VORTAN_TRANSFER
