// <syslog.h> defines names that a log library likes to use; it and the public headers get along.
#include <syslog.h>
//
#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <QXCurlEasyHandlerFactory.h>

static_assert(LOG_DEBUG == 7 && LOG_INFO == 6, "the values are those of <syslog.h>");

void LogBefore()
{
    syslog(LOG_DEBUG, "before");
}
