#pragma once

#include <utility>

#include "ITransferHandler.h"

namespace VORTAN_MW {

// ITransferHandler::GetTransfer for a caller that is done with its configuration: it is moved into
// the transfer's detail, which saves copying a request body. The log cannot tell the two apart.
class TransferByMove
{
public:
    using Bytes = ITransferHandler::Bytes;
    using ChunkCallback = ITransferHandler::ChunkCallback;
    using Configuration = ITransferHandler::Configuration;
    using Result = ITransferHandler::Result;

    static Result Run(const ITransferHandler& handler, Configuration&& configuration,
                      boost::optional<Bytes&> header, boost::optional<Bytes&> data);

    static Result Run(const ITransferHandler& handler, Configuration&& configuration,
                      ChunkCallback headerCallback, ChunkCallback dataCallback, void* userData)
    {
        return handler.m_GetTransfer(std::move(configuration), std::move(headerCallback),
                                     std::move(dataCallback), userData);
    }
};

}  // namespace VORTAN_MW
