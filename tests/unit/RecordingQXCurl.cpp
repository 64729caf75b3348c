#include "RecordingQXCurl.h"

#include <QXCurl.h>

#include <cstring>

namespace {

RecordingQXCurl* s_Recording = nullptr;

bool Record(const std::string& event)
{
    s_Recording->events.push_back(event);
    return true;
}

bool RecordOption(int option, const std::string& value)
{
    return Record("setOption(" + std::to_string(option) + ", " + value + ")");
}

std::string NameOf(const void* pointer)
{
    const auto found = s_Recording->names.find(pointer);
    return found == s_Recording->names.end() ? "unknown" : found->second;
}

std::string Join(const std::list<std::string>& lines)
{
    std::string joined;
    for (const std::string& line : lines) {
        joined += (joined.empty() ? "" : "|") + line;
    }
    return joined;
}

}  // namespace

RecordingQXCurl::RecordingQXCurl()
{
    s_Recording = this;
}

RecordingQXCurl::~RecordingQXCurl()
{
    s_Recording = nullptr;
}

unsigned int RecordingQXCurl::Call(int callback, int pointer, std::string& bytes)
{
    return callbacks.at(callback)(bytes.data(), 1, static_cast<unsigned int>(bytes.size()),
                                  pointers.at(pointer));
}

namespace QXCurl {

class QXCurlEasy::Impl
{
};

QXCurlEasy::QXCurlEasy()
{
    Record("QXCurlEasy()");
}

QXCurlEasy::~QXCurlEasy()
{
    Record("~QXCurlEasy()");
}

bool QXCurlEasy::Initialize()
{
    Record("Initialize()");
    return false;  // like every result here that is of no account
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const int& value)
{
    return !RecordOption(option, "int " + std::to_string(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const long& value)
{
    return !RecordOption(option, "long " + std::to_string(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const long long& value)
{
    return !RecordOption(option, "long long " + std::to_string(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const std::string& value)
{
    return !RecordOption(option, "string " + value);
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const std::list<std::string>& value)
{
    return !RecordOption(option, "list " + Join(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option,
                           unsigned int (*value)(char*, unsigned int, unsigned int, void*))
{
    s_Recording->callbacks[option] = value;
    return !RecordOption(option, "callback " + NameOf(reinterpret_cast<const void*>(value)));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, void* value)
{
    s_Recording->pointers[option] = value;
    return !RecordOption(option, "pointer " + NameOf(value));
}

bool QXCurlEasy::setVistrelClient(const std::string& client)
{
    Record("setVistrelClient(" + client + ")");
    return s_Recording->acceptClient;
}

bool QXCurlEasy::setVistrelHeader(t_HdrOption option)
{
    Record("setVistrelHeader(" + std::to_string(option) + ")");
    return s_Recording->acceptHeader;
}

bool QXCurlEasy::setHalvordPormelSSLContext()
{
    Record("setHalvordPormelSSLContext()");
    return s_Recording->acceptSslContext;
}

bool QXCurlEasy::setTimeout(int transfer, int connection)
{
    return !Record("setTimeout(" + std::to_string(transfer) + ", " + std::to_string(connection) +
                   ")");
}

bool QXCurlEasy::send()
{
    Record("send()");
    return s_Recording->onSend();
}

bool QXCurlEasy::getInfo(QXCURL_INFO_TYPE info, long* value)
{
    Record("getInfo(" + std::to_string(info) + ", " + std::to_string(*value) + ")");
    *value = s_Recording->responseCode;
    return false;
}

std::string QXCurlEasy::getLastError()
{
    Record("getLastError()");
    return s_Recording->lastError;
}

void QXCurlEasy::reset()
{
    Record("reset()");
}

bool QXCurlUtility::checkIsHttps(std::string url)
{
    Record("checkIsHttps(" + url + ")");
    return s_Recording->isHttps.value_or(url.rfind("https:", 0) == 0);
}

void QXCurlUtility::makeQueryString(std::string& queryString, std::string key, std::string value)
{
    Record("makeQueryString(" + queryString + ", " + key + ", " + value + ")");
    queryString += "[" + key + "=" + value + "]";
}

std::string QXCurlUtility::makeUri(std::string resource, std::string queryString)
{
    Record("makeUri(" + resource + ", " + queryString + ")");
    return s_Recording->uri.value_or(s_Recording->scheme + "://maker/" + resource + "?" +
                                     queryString);
}

bool QXCurlUtility::init_ssl_lock()
{
    Record("init_ssl_lock()");
    return false;
}

bool QXCurlUtility::deinit_ssl_lock()
{
    Record("deinit_ssl_lock()");
    return false;
}

}  // namespace QXCurl
