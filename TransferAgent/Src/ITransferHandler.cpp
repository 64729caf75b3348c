#include "ITransferHandler.h"

#include "Utils.h"

namespace VORTAN_MW {

ITransferHandler::~ITransferHandler() = default;

ITransferHandlerFactory::~ITransferHandlerFactory() = default;

ITransferHandler::Result ITransferHandler::GetTransfer(const Configuration& configuration,
                                                       boost::optional<Bytes&> header,
                                                       boost::optional<Bytes&> data) const
{
    LOG_DEBUG(" ");
    TransferDetail detail;
    static_cast<Configuration&>(detail) = configuration;
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
