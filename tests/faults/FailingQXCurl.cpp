#include "FailingQXCurl.h"

#include <QXCurl.h>

#include <list>
#include <map>
#include <stdexcept>

using Callback = unsigned int (*)(char*, unsigned int, unsigned int, void*);

namespace {

CallCount s_Calls;
bool s_Throws = false;
// The handles that nobody has destroyed.
long s_Live = 0;

void ThrowIfItFails(const std::string& operation)
{
    if (s_Throws && s_Calls.Fails(operation)) {
        throw std::runtime_error("from the wrapper");
    }
}

// For operations that tell whether they worked.
bool Works(const std::string& operation)
{
    ThrowIfItFails(operation);
    return s_Throws || !s_Calls.Fails(operation);
}

Fault MakeFault(void (*arm)(long))
{
    return {arm, [] { return s_Calls.Disarm(); }, [] { return s_Live; }, true, "from the wrapper"};
}

}  // namespace

const Fault refusingQXCurl = MakeFault([](long number) {
    s_Throws = false;
    s_Calls.Arm(number);
});

const Fault throwingQXCurl = MakeFault([](long number) {
    s_Throws = true;
    s_Calls.Arm(number);
});

namespace QXCurl {

class QXCurlEasy::Impl
{
public:
    bool Set(QXCURL_OPTION_TYPE option, const std::string& value)
    {
        const std::string name = std::to_string(option);
        return Keep("setOption " + name, "option " + name + " " + value);
    }

    // Adds the line to the body of the response, if the operation works.
    bool Keep(const std::string& operation, const std::string& line)
    {
        if (!Works(operation)) {
            return false;
        }
        text += line + "\n";
        return true;
    }

    // Calls that callback with that pointer, if it is set.
    bool Deliver(QXCURL_OPTION_TYPE callback, QXCURL_OPTION_TYPE pointer, std::string bytes)
    {
        const auto size = static_cast<unsigned int>(bytes.size());
        return !callbacks[callback] ||
               callbacks[callback](bytes.data(), 1, size, pointers[pointer]) == size;
    }

    std::string Upload()
    {
        const Callback read = callbacks[QXCURL_OPTION_READFUNCTION];
        char buffer[100];
        const unsigned int size =
            read ? read(buffer, 1, sizeof buffer, pointers[QXCURL_OPTION_READDATA]) : 0;
        return size > 0 ? "upload " + std::string(buffer, size) + "\n" : "";
    }

    std::string text;
    std::string url;
    std::map<int, Callback> callbacks;
    std::map<int, void*> pointers;
};

QXCurlEasy::QXCurlEasy()
{
    ThrowIfItFails("QXCurlEasy");
    m_Impl = std::make_unique<Impl>();
    ++s_Live;
}

QXCurlEasy::~QXCurlEasy()
{
    --s_Live;
}

bool QXCurlEasy::Initialize()
{
    return Works("Initialize");
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const int& value)
{
    return m_Impl->Set(option, "int " + std::to_string(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const long& value)
{
    return m_Impl->Set(option, "long " + std::to_string(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const long long& value)
{
    return m_Impl->Set(option, "long long " + std::to_string(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const std::string& value)
{
    if (!m_Impl->Set(option, value)) {
        return false;
    }
    m_Impl->url = value;
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const std::list<std::string>& value)
{
    std::string text = "list";
    for (const std::string& line : value) {
        text += " [" + line + "]";
    }
    return m_Impl->Set(option, text);
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, Callback value)
{
    if (!m_Impl->Set(option, "callback")) {
        return false;
    }
    m_Impl->callbacks[option] = value;
    return true;
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, void* value)
{
    if (!m_Impl->Set(option, "pointer")) {
        return false;
    }
    m_Impl->pointers[option] = value;
    return true;
}

bool QXCurlEasy::setVistrelClient(const std::string& client)
{
    return m_Impl->Keep("setVistrelClient", "client " + client);
}

bool QXCurlEasy::setVistrelHeader(t_HdrOption option)
{
    return m_Impl->Keep("setVistrelHeader", "header " + std::to_string(option));
}

bool QXCurlEasy::setHalvordPormelSSLContext()
{
    return m_Impl->Keep("setHalvordPormelSSLContext", "context");
}

bool QXCurlEasy::setTimeout(int transfer, int connection)
{
    return m_Impl->Keep("setTimeout",
                        "timeout " + std::to_string(transfer) + " " + std::to_string(connection));
}

bool QXCurlEasy::send()
{
    if (!Works("send") || m_Impl->url == "http://refused") {
        return false;
    }
    std::string body = m_Impl->text + m_Impl->Upload();
    if (m_Impl->url == "next") {
        body.assign(BodyLength, 'x');
    }
    return m_Impl->Deliver(QXCURL_OPTION_HEADERFUNCTION, QXCURL_OPTION_HEADERDATA, "X-Seen\r\n") &&
           m_Impl->Deliver(QXCURL_OPTION_WRITEFUNCTION, QXCURL_OPTION_WRITEDATA, body);
}

bool QXCurlEasy::getInfo(QXCURL_INFO_TYPE /*info*/, long* value)
{
    if (!Works("getInfo")) {
        return false;
    }
    *value = 200;
    return true;
}

std::string QXCurlEasy::getLastError()
{
    ThrowIfItFails("getLastError");
    return "refused";
}

void QXCurlEasy::reset()
{
    ThrowIfItFails("reset");
}

bool QXCurlUtility::checkIsHttps(std::string url)
{
    ThrowIfItFails("checkIsHttps");
    return url.rfind("https:", 0) == 0;
}

void QXCurlUtility::makeQueryString(std::string& queryString, std::string key, std::string value)
{
    ThrowIfItFails("makeQueryString");
    queryString.append(key).append("=").append(value);
}

std::string QXCurlUtility::makeUri(std::string resource, std::string queryString)
{
    ThrowIfItFails("makeUri");
    return "https://maker/" + resource + "?" + queryString;
}

bool QXCurlUtility::init_ssl_lock()
{
    return Works("init_ssl_lock");
}

bool QXCurlUtility::deinit_ssl_lock()
{
    return Works("deinit_ssl_lock");
}

}  // namespace QXCurl
