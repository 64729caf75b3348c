#include "Exchange.h"

#include <new>

#include "RequestRules.h"

namespace VORTAN_MW {
namespace KIT {

Exchange::Receiver::~Receiver() = default;

void Exchange::SetUp()
{
    m_Handle.Reset();
    m_SetTarget();
    m_SetMethod();
    m_SetHeaders();
    m_SetTls();
    m_SetCallbacks();
}

void Exchange::m_SetTarget()
{
    CURL* const easy = m_Handle.Easy();
    SetOption<CURLOPT_URL>(easy, m_Request.hop.url.text.c_str());
    SetOption<CURLOPT_PROTOCOLS_STR>(easy, "http,https");
    // A handle performs one request at a time: several on one connection would gain nothing.
    SetOption<CURLOPT_HTTP_VERSION>(easy, long{CURL_HTTP_VERSION_1_1});
    SetOption<CURLOPT_SUPPRESS_CONNECT_HEADERS>(easy, 1L);
    SetOption<CURLOPT_FRESH_CONNECT>(easy, long{m_Request.isOnFreshConnection});
    m_Handle.SetOrigin(m_Request.hop.url.Origin());
}

void Exchange::m_SetMethod()
{
    CURL* const easy = m_Handle.Easy();
    switch (m_Request.hop.method) {
        case Method::EhttpPost:
            SetOption<CURLOPT_POST>(easy, 1L);
            m_SetUpload();
            break;
        case Method::EhttpPut:
            SetOption<CURLOPT_UPLOAD>(easy, 1L);
            m_SetUpload();
            break;
        case Method::EhttpHead:
            SetOption<CURLOPT_NOBODY>(easy, 1L);
            break;
        case Method::Default:
        case Method::EhttpGet:
        default:
            SetOption<CURLOPT_HTTPGET>(easy, 1L);
            if (!m_Request.isBodyWanted) {
                SetOption<CURLOPT_NOBODY>(easy, 1L);
            }
            break;
    }
}

void Exchange::m_SetUpload()
{
    CURL* const easy = m_Handle.Easy();
    const auto length =
        static_cast<curl_off_t>(m_Request.body ? m_Request.body->Length() : std::uint64_t{0});
    SetOption<CURLOPT_POSTFIELDSIZE_LARGE>(easy, length);
    SetOption<CURLOPT_INFILESIZE_LARGE>(easy, length);
    SetOption<CURLOPT_READFUNCTION>(easy, &s_ReadBody);
    SetOption<CURLOPT_READDATA>(easy, static_cast<void*>(this));
    SetOption<CURLOPT_SEEKFUNCTION>(easy, &s_SeekBody);
    SetOption<CURLOPT_SEEKDATA>(easy, static_cast<void*>(this));
}

void Exchange::m_SetHeaders()
{
    CURL* const easy = m_Handle.Easy();
    SetOption<CURLOPT_USERAGENT>(easy, "vortan-transferkit");
    // Waiting for the server's consent costs a second where a server knows nothing of it.
    Append(m_Lines, "Expect:");
    if (!m_Request.hop.isForeign) {
        for (const auto& [name, value] : m_Request.detail.headers) {
            // libcurl takes "Name:" for the wish to leave a header out.
            const bool isEmpty = value.find_first_not_of(" \t") == std::string::npos;
            std::string line = name;
            line += isEmpty ? ";" : ": ";
            line += isEmpty ? "" : value;
            Append(m_Lines, line);
        }
        if (m_Request.options.hasCredentials) {
            SetOption<CURLOPT_HTTPAUTH>(easy, static_cast<long>(CURLAUTH_BASIC));
            SetOption<CURLOPT_USERNAME>(easy, m_Request.options.user.c_str());
            SetOption<CURLOPT_PASSWORD>(easy, m_Request.options.password.c_str());
        }
    }
    if (m_Request.mayBeEncoded) {
        SetOption<CURLOPT_ACCEPT_ENCODING>(easy, "gzip, deflate");
    }
    if (!m_Request.range.empty()) {
        SetOption<CURLOPT_RANGE>(easy, m_Request.range.c_str());
        Append(m_Lines, "If-Range: " + m_Request.validator);
    }
    SetOption<CURLOPT_HTTPHEADER>(easy, m_Lines.get());
}

void Exchange::m_SetTls()
{
    CURL* const easy = m_Handle.Easy();
    const Policy& policy = m_Request.policy;
    if (m_Request.hop.url.scheme != "https") {
        return;
    }
    m_Request.authorities.ApplyTo(m_Handle);
    SetOption<CURLOPT_SSL_VERIFYPEER>(easy, long{policy.isServerVerified});
    // 2: the name in the certificate must be the host's.
    SetOption<CURLOPT_SSL_VERIFYHOST>(easy, policy.isServerVerified ? 2L : 0L);
    SetOption<CURLOPT_SSLVERSION>(easy, policy.lowestTlsVersion == TlsVersion::Tls13
                                            ? long{CURL_SSLVERSION_TLSv1_3}
                                            : long{CURL_SSLVERSION_TLSv1_2});
    if (m_Request.hop.isForeign) {
        return;
    }
    if (!policy.pinnedKey.empty()) {
        SetOption<CURLOPT_PINNEDPUBLICKEY>(easy, policy.pinnedKey.c_str());
    }
    if (!policy.certificateFile.empty()) {
        SetOption<CURLOPT_SSLCERT>(easy, policy.certificateFile.c_str());
        SetOption<CURLOPT_SSLKEY>(easy, policy.keyFile.c_str());
    }
}

void Exchange::m_SetCallbacks()
{
    CURL* const easy = m_Handle.Easy();
    SetOption<CURLOPT_HEADERFUNCTION>(easy, &s_WriteHeader);
    SetOption<CURLOPT_HEADERDATA>(easy, static_cast<void*>(this));
    SetOption<CURLOPT_WRITEFUNCTION>(easy, &s_WriteBody);
    SetOption<CURLOPT_WRITEDATA>(easy, static_cast<void*>(this));
}

// No exception may cross libcurl's frames.
template <typename Step>
auto Exchange::m_Guarded(const Step& step, decltype(step()) failed) -> decltype(step())
{
    try {
        return step();
    } catch (const std::bad_alloc&) {
        m_Fault = Category::OutOfMemory;
    } catch (...) {
        m_Fault = Category::Internal;
    }
    return failed;
}

bool Exchange::m_TakeHeaderLine(const char* data, std::size_t length)
{
    switch (m_Header.Take(data, length)) {
        case HeaderCollector::State::Complete:
            return m_Receiver.OnHeader(m_Header);
        case HeaderCollector::State::TooLong:
            m_Fault = Category::TooLarge;
            return false;
        case HeaderCollector::State::Invalid:
            m_Fault = Category::InvalidResponse;
            return false;
        case HeaderCollector::State::Incomplete:
        case HeaderCollector::State::InBody:
            break;
    }
    return true;
}

std::size_t Exchange::m_ReadBody(char* buffer, std::size_t length)
{
    const long count = m_Request.body ? m_Request.body->Read(buffer, length) : 0;
    if (count < 0) {
        m_Fault = Category::UploadFailed;
        return CURL_READFUNC_ABORT;
    }
    return static_cast<std::size_t>(count);
}

std::size_t Exchange::s_WriteHeader(char* data, std::size_t size, std::size_t count, void* self)
{
    auto* const exchange = static_cast<Exchange*>(self);
    const std::size_t length = size * count;
    const bool isTaken =
        exchange->m_Guarded([&] { return exchange->m_TakeHeaderLine(data, length); }, false);
    return isTaken ? length : 0;
}

std::size_t Exchange::s_WriteBody(char* data, std::size_t size, std::size_t count, void* self)
{
    auto* const exchange = static_cast<Exchange*>(self);
    const std::size_t length = size * count;
    const bool isTaken =
        exchange->m_Guarded([&] { return exchange->m_Receiver.OnBody(data, length); }, false);
    return isTaken ? length : 0;
}

std::size_t Exchange::s_ReadBody(char* buffer, std::size_t size, std::size_t count, void* self)
{
    return static_cast<Exchange*>(self)->m_ReadBody(buffer, size * count);
}

int Exchange::s_SeekBody(void* self, curl_off_t offset, int origin)
{
    BodySource* const body = static_cast<Exchange*>(self)->m_Request.body;
    const bool isDone =
        body && origin == SEEK_SET && offset >= 0 && body->Seek(static_cast<std::uint64_t>(offset));
    return isDone ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

}  // namespace KIT
}  // namespace VORTAN_MW
