#include "ITransferAgentManager.h"

namespace VORTAN_MW {

// The one definition that clients need who compile as C++14 and take the constant's address.
constexpr std::uint64_t ITransferAgentManager::InvalidHandle;

ITransferAgentManager::~ITransferAgentManager() = default;

}  // namespace VORTAN_MW
