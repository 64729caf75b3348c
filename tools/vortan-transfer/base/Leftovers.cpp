#include "base/Leftovers.h"

#include "base/PartWatch.h"
#include "base/TemporaryFile.h"

namespace VORTAN_TRANSFER {

void RemoveTemporaryForGood()
{
    TemporaryFile::RemoveAllForGood();
    PartWatch::RemoveUselessForGood();
}

}  // namespace VORTAN_TRANSFER
