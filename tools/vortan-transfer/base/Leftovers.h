#pragma once

namespace VORTAN_TRANSFER {

// Removes temporary files, and parts that nobody could go on with. From then on no file takes its
// name: whoever tries waits for the end of the program, which the caller is to bring about.
void RemoveTemporaryForGood();

}  // namespace VORTAN_TRANSFER
