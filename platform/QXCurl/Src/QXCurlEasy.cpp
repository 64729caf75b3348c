#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include "QXCurl.h"
#include "Settings.h"
#include "Transfer.h"

namespace QXCurl {

namespace {

bool IsControl(char character)
{
    return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
}

// The CA bundle that the user has named, if any.
std::string CaFile()
{
    // Nothing here changes the environment, so that threads may read it.
    const char* const path = std::getenv("QXCURL_CA_FILE");  // NOLINT(concurrency-mt-unsafe)
    return path ? path : "";
}

// Returns why the file cannot be read, or nothing.
std::string ReasonNotToRead(const std::string& path)
{
    errno = 0;
    std::ifstream file(path);
    if (file.peek() != std::ifstream::traits_type::eof()) {
        return {};
    }
    return errno == 0 ? "it is empty" : std::generic_category().message(errno);
}

}  // namespace

class QXCurlEasy::Impl
{
public:
    template <typename T>
    bool Set(QXCURL_OPTION_TYPE option, const T& value)
    {
        settings.options.Set(option, value);
        return true;
    }

    bool Fail(std::string reason)
    {
        lastError = std::move(reason);
        return false;
    }

    Settings settings;
    Transfer transfer;
    long responseCode = 0;
    std::string lastError;
};

QXCurlEasy::QXCurlEasy() : m_Impl(std::make_unique<Impl>()) {}

QXCurlEasy::~QXCurlEasy() = default;

bool QXCurlEasy::Initialize()
{
    return m_Impl->transfer.Prepare() || m_Impl->Fail("libcurl cannot be used");
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const int& value)
{
    return m_Impl->Set(option, static_cast<long long>(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const long& value)
{
    return m_Impl->Set(option, static_cast<long long>(value));
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const long long& value)
{
    return m_Impl->Set(option, value);
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const std::string& value)
{
    return m_Impl->Set(option, value);
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, const std::list<std::string>& value)
{
    return m_Impl->Set(option, value);
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option,
                           unsigned int (*value)(char*, unsigned int, unsigned int, void*))
{
    return m_Impl->Set(option, value);
}

bool QXCurlEasy::setOption(QXCURL_OPTION_TYPE option, void* value)
{
    return m_Impl->Set(option, value);
}

bool QXCurlEasy::setVistrelClient(const std::string& client)
{
    if (client.empty() || std::any_of(client.begin(), client.end(), &IsControl)) {
        return m_Impl->Fail("the client name is empty or could not stand in a header");
    }
    m_Impl->settings.client = client;
    return true;
}

bool QXCurlEasy::setVistrelHeader(t_HdrOption option)
{
    if (option != QXCURL_HDR_CLIENT || m_Impl->settings.client.empty()) {
        return m_Impl->Fail("there is no such client header, or no client name for it");
    }
    m_Impl->settings.sendClient = true;
    return true;
}

bool QXCurlEasy::setHalvordPormelSSLContext()
{
    const std::string path = CaFile();
    const std::string reason = path.empty() ? "" : ReasonNotToRead(path);
    if (!reason.empty()) {
        return m_Impl->Fail("cannot read the CA bundle " + path + ": " + reason);
    }
    m_Impl->settings.caFile = path;
    return true;
}

bool QXCurlEasy::setTimeout(int transfer, int connection)
{
    m_Impl->settings.transferTimeout = transfer;
    m_Impl->settings.connectionTimeout = connection;
    return true;
}

bool QXCurlEasy::send()
{
    m_Impl->responseCode = 0;
    const Outcome outcome = m_Impl->transfer.Send(m_Impl->settings);
    m_Impl->responseCode = outcome.responseCode;
    return outcome.error.empty() || m_Impl->Fail(outcome.error);
}

bool QXCurlEasy::getInfo(QXCURL_INFO_TYPE info, long* value)
{
    if (info != QXCURL_INFO_RESPONSE_CODE) {
        return false;
    }
    *value = m_Impl->responseCode;
    return true;
}

std::string QXCurlEasy::getLastError()
{
    return m_Impl->lastError;
}

void QXCurlEasy::reset()
{
    m_Impl->settings = {};
    m_Impl->responseCode = 0;
    m_Impl->lastError.clear();
}

}  // namespace QXCurl
