#include "ITransferHandler.h"

#include <utility>

#include "TransferByMove.h"
#include "Utils.h"

namespace VORTAN_MW {

ITransferHandler::~ITransferHandler() = default;

ITransferHandlerFactory::~ITransferHandlerFactory() = default;

namespace {

// The one line for both ways into the form with buffers.
void TraceEntry()
{
    LOG_DEBUG_AS("GetTransfer", " ");
}

}  // namespace

ITransferHandler::Result ITransferHandler::GetTransfer(const Configuration& configuration,
                                                       boost::optional<Bytes&> header,
                                                       boost::optional<Bytes&> data) const
{
    TraceEntry();
    return m_GetTransfer(Configuration(configuration), header, data);
}

ITransferHandler::Result TransferByMove::Run(const ITransferHandler& handler,
                                             Configuration&& configuration,
                                             boost::optional<Bytes&> header,
                                             boost::optional<Bytes&> data)
{
    TraceEntry();
    return handler.m_GetTransfer(std::move(configuration), header, data);
}

ITransferHandler::Result ITransferHandler::m_GetTransfer(Configuration&& configuration,
                                                         boost::optional<Bytes&> header,
                                                         boost::optional<Bytes&> data) const
{
    TransferDetail detail;
    static_cast<Configuration&>(detail) = std::move(configuration);
    detail.headerBuffer = header.get_ptr();
    detail.dataBuffer = data.get_ptr();
    return DoTransfer(detail);
}

void ITransferHandler::s_TraceEntry(const char* function, int line)
{
    __dlog_print(UTILS::LogMainBuffer, UTILS::LogPriorityDebug, UTILS::LogTag,
                 UTILS::LogFormatDebug, "ITransferHandler.h", function, line, " ");
}

}  // namespace VORTAN_MW
