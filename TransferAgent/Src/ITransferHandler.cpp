#include "ITransferHandler.h"

#include <utility>

#include "TransferByMove.h"
#include "Utils.h"

namespace VORTAN_MW {

ITransferHandler::~ITransferHandler() = default;

ITransferHandlerFactory::~ITransferHandlerFactory() = default;

template <typename AnyConfiguration>
ITransferHandler::Result ITransferHandler::m_GetTransfer(AnyConfiguration&& configuration,
                                                         boost::optional<Bytes&> header,
                                                         boost::optional<Bytes&> data) const
{
    LOG_DEBUG_AS("GetTransfer", " ");
    TransferDetail detail;
    static_cast<Configuration&>(detail) = std::forward<AnyConfiguration>(configuration);
    detail.headerBuffer = header.get_ptr();
    detail.dataBuffer = data.get_ptr();
    return DoTransfer(detail);
}

ITransferHandler::Result ITransferHandler::GetTransfer(const Configuration& configuration,
                                                       boost::optional<Bytes&> header,
                                                       boost::optional<Bytes&> data) const
{
    return m_GetTransfer(configuration, header, data);
}

ITransferHandler::Result TransferByMove::Run(const ITransferHandler& handler,
                                             Configuration&& configuration,
                                             boost::optional<Bytes&> header,
                                             boost::optional<Bytes&> data)
{
    return handler.m_GetTransfer(std::move(configuration), header, data);
}

void ITransferHandler::s_TraceEntry(const char* function, int line)
{
    __dlog_print(UTILS::LogMainBuffer, UTILS::LogPriorityDebug, UTILS::LogTag,
                 UTILS::LogFormatDebug, "ITransferHandler.h", function, line, " ");
}

}  // namespace VORTAN_MW
