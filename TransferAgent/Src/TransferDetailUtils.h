#pragma once

#include "ITransferHandler.h"

namespace VORTAN_MW {

// The detail as the user pointer of a C callback, which is not const; the detail changes only in
// its mutable member.
inline void* UserPointer(const ITransferHandler::TransferDetail& detail)
{
    return const_cast<ITransferHandler::TransferDetail*>(&detail);
}

// Empties the buffer, if there is one. Returns whether anybody wants the bytes.
inline bool PrepareDelivery(ITransferHandler::Bytes* buffer,
                            const ITransferHandler::ChunkCallback& callback)
{
    if (buffer) {
        buffer->clear();
        return true;
    }
    return static_cast<bool>(callback);
}

}  // namespace VORTAN_MW
