#include "ITransferAgentManager.h"

namespace VORTAN_MW {

// The one definition that clients need who compile as C++14 and take the constant's address.
// NOLINTNEXTLINE(readability-redundant-declaration): since C++17 only, and clients may be older.
constexpr std::uint64_t ITransferAgentManager::InvalidHandle;

ITransferAgentManager::~ITransferAgentManager() = default;

}  // namespace VORTAN_MW
