#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <QXCurlEasyHandlerFactory.h>
//
#include <syslog.h>

static_assert(LOG_DEBUG == 7 && LOG_INFO == 6, "the values are those of <syslog.h>");

void LogAfter()
{
    syslog(LOG_DEBUG, "after");
}
