// A wrapper library in the stand-in's place. It transfers nothing: its response tells what it was
// asked to do.

#include <QXCurl.h>

#include <map>

namespace QXCurl {

class QXCurlEasy::Impl
{
public:
    using Callback = unsigned int (*)(char*, unsigned int, unsigned int, void*);

    bool Deliver(QXCURL_OPTION_TYPE callback, QXCURL_OPTION_TYPE pointer, std::string bytes)
    {
        const auto size = static_cast<unsigned int>(bytes.size());
        return callbacks[callback](bytes.data(), 1, size, pointers[pointer]) == size;
    }

    std::string url;
    std::string client;
    std::map<QXCURL_OPTION_TYPE, Callback> callbacks;
    std::map<QXCURL_OPTION_TYPE, void*> pointers;
};

QXCurlEasy::QXCurlEasy() : m_Impl(std::make_unique<Impl>()) {}

QXCurlEasy::~QXCurlEasy() = default;

bool QXCurlEasy::Initialize()
{
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE /*option*/, const int& /*value*/)
{
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE /*option*/, const long& /*value*/)
{
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE /*option*/, const long long& /*value*/)
{
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE /*option*/, const std::string& value)
{
    m_Impl->url = value;
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE /*option*/, const std::list<std::string>& /*value*/)
{
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option,
                           unsigned int (*value)(char*, unsigned int, unsigned int, void*))
{
    m_Impl->callbacks[option] = value;
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, void* value)
{
    m_Impl->pointers[option] = value;
    return true;
}

bool QXCurlEasy::setVistrelClient(const std::string& client)
{
    m_Impl->client = client;
    return true;
}

bool QXCurlEasy::setVistrelHeader(t_HdrOption /*option*/)
{
    return true;
}

bool QXCurlEasy::setHalvordPormelSSLContext()
{
    return true;
}

bool QXCurlEasy::setTimeout(int /*transfer*/, int /*connection*/)
{
    return true;
}

bool QXCurlEasy::send()
{
    return m_Impl->Deliver(QXCURL_OPTION_HEADERFUNCTION, QXCURL_OPTION_HEADERDATA,
                           m_Impl->client) &&
           m_Impl->Deliver(QXCURL_OPTION_WRITEFUNCTION, QXCURL_OPTION_WRITEDATA, m_Impl->url);
}

bool QXCurlEasy::getInfo(QXCURL_INFO_TYPE /*info*/, long* value)
{
    *value = 299;
    return true;
}

std::string QXCurlEasy::getLastError()
{
    return "second";
}

void QXCurlEasy::reset() {}

bool QXCurlUtility::checkIsHttps(std::string /*url*/)
{
    return true;
}

void QXCurlUtility::makeQueryString(std::string& queryString, std::string key, std::string value)
{
    queryString += "<" + key + "," + value + ">";
}

std::string QXCurlUtility::makeUri(std::string resource, std::string queryString)
{
    return "second:" + resource + queryString;
}

bool QXCurlUtility::init_ssl_lock()
{
    return true;
}

bool QXCurlUtility::deinit_ssl_lock()
{
    return true;
}

}  // namespace QXCurl
