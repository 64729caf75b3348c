#include "CurlEasyHandler.h"

// The fixed list of options has one that libcurl calls deprecated, CURLOPT_PUT.
#define CURL_DISABLE_DEPRECATION
#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "CurlEasyHandlerFactory.h"
#include "CurlOption.h"
#include "TransferDetailUtils.h"
#include "Utils.h"

namespace VORTAN_MW {

namespace {

using TransferDetail = ITransferHandler::TransferDetail;
using UTILS::SetCurlOption;

struct EasyHandleDeleter
{
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using EasyHandle = std::unique_ptr<CURL, EasyHandleDeleter>;

struct HeaderListDeleter
{
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

// What the callbacks of the transfer that runs on this thread share with DoTransfer. Nested: a
// client's callback may itself use a handler.
class RunningTransfer
{
public:
    explicit RunningTransfer(CURL* handle)
        : m_Handle(handle), m_Outer(std::exchange(s_Current, this))
    {}
    RunningTransfer(const RunningTransfer&) = delete;
    RunningTransfer& operator=(const RunningTransfer&) = delete;
    ~RunningTransfer() { s_Current = m_Outer; }

    void RethrowIfAny() const
    {
        if (m_Exception) {
            std::rethrow_exception(m_Exception);
        }
    }

    // Called in a catch block: keeps the exception, the first one if there are several. With no
    // transfer on this thread there is nobody to keep it for: it goes on to the caller.
    static void Keep()
    {
        if (!s_Current) {
            throw;
        }
        if (!s_Current->m_Exception) {
            s_Current->m_Exception = std::current_exception();
        }
    }

    // How many bytes of body the server said that it would send; 0 if it did not say.
    static std::uint64_t AnnouncedLength()
    {
        curl_off_t length = 0;
        if (s_Current) {
            curl_easy_getinfo(s_Current->m_Handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        }
        return length > 0 ? static_cast<std::uint64_t>(length) : 0;
    }

private:
    static thread_local RunningTransfer* s_Current;

    CURL* m_Handle;
    RunningTransfer* m_Outer;
    std::exception_ptr m_Exception;
};

thread_local RunningTransfer* RunningTransfer::s_Current = nullptr;

// Makes room in a full buffer for what is announced, which saves copying it as it grows. Memory
// that is not written to costs nothing but addresses, and even of those a server that announces
// more than it sends gets no more than the first step, or eight times what it has sent. The steps
// are eighths of one another, so that the last one is the announced length.
void ReserveAnnounced(ITransferHandler::Bytes& body, std::size_t chunk)
{
    constexpr std::uint64_t FirstStep = std::uint64_t{64} * 1024 * 1024;
    constexpr std::uint64_t Growth = 8;
    if (body.capacity() - body.size() >= chunk) {
        return;
    }
    const std::uint64_t bound = std::max(FirstStep, Growth * body.capacity());
    std::uint64_t wanted =
        std::min<std::uint64_t>(RunningTransfer::AnnouncedLength(), body.max_size());
    while (wanted > bound) {
        wanted = (wanted + Growth - 1) / Growth;
    }
    if (wanted < body.size() + chunk) {
        return;
    }
    try {
        body.reserve(static_cast<std::size_t>(wanted));
    } catch (const std::bad_alloc&) {
        // Whether there is room for what really arrives is seen when it does.
    }
}

void SetUpload(CURL* handle, const TransferDetail& detail)
{
    SetCurlOption<CURLOPT_READFUNCTION>(handle, &CurlEasyHandler::s_ReadBodyCallback);
    SetCurlOption<CURLOPT_READDATA>(handle, UserPointer(detail));
    SetCurlOption<CURLOPT_INFILESIZE_LARGE>(handle,
                                            static_cast<curl_off_t>(detail.requestBody.size()));
}

void SetMethod(CURL* handle, const TransferDetail& detail)
{
    using HttpMethod = ITransferHandler::Configuration::HttpMethod;
    switch (detail.method) {
        case HttpMethod::EhttpGet:
            SetCurlOption<CURLOPT_HTTPGET>(handle, 1L);
            break;
        case HttpMethod::EhttpHead:
            SetCurlOption<CURLOPT_NOBODY>(handle, 1L);
            break;
        case HttpMethod::EhttpPost:
            SetCurlOption<CURLOPT_POST>(handle, 1L);
            // Makes a POST chunked: libcurl takes the length of its body from
            // CURLOPT_POSTFIELDSIZE, which is not one of the options, and reads CURLOPT_INFILESIZE
            // for a PUT only.
            SetUpload(handle, detail);
            SetCurlOption<CURLOPT_POSTREDIR>(handle, long{CURL_REDIR_POST_ALL});
            break;
        case HttpMethod::EhttpPut:  // without a redirect option, on purpose
            SetCurlOption<CURLOPT_UPLOAD>(handle, 1L);
            SetCurlOption<CURLOPT_PUT>(handle, 1L);
            SetUpload(handle, detail);
            break;
        case HttpMethod::Default:
        default:
            break;
    }
}

void SetDelivery(CURL* handle, const TransferDetail& detail, bool wantHeader, bool wantBody)
{
    if (wantHeader) {
        SetCurlOption<CURLOPT_HEADERFUNCTION>(handle, &CurlEasyHandler::s_WriteHeaderCallback);
        SetCurlOption<CURLOPT_HEADERDATA>(handle, UserPointer(detail));
    }
    if (wantBody) {
        SetCurlOption<CURLOPT_WRITEFUNCTION>(handle, &CurlEasyHandler::s_WriteBodyCallback);
        SetCurlOption<CURLOPT_WRITEDATA>(handle, UserPointer(detail));
    } else {
        SetCurlOption<CURLOPT_NOBODY>(handle, 1L);
    }
}

void SetConduct(CURL* handle, const TransferDetail& detail)
{
    SetCurlOption<CURLOPT_USERAGENT>(handle, "libcurl-agent/1.0");
    SetCurlOption<CURLOPT_FAILONERROR>(handle, long{detail.failOnError});
    SetCurlOption<CURLOPT_FOLLOWLOCATION>(handle, 1L);
    SetCurlOption<CURLOPT_ACCEPT_ENCODING>(handle, "");  // all that libcurl can decode
}

// A line that cannot be appended is left out; the list so far stays.
void AppendLine(HeaderList& list, const std::string& line)
{
    if (curl_slist* const longer = curl_slist_append(list.get(), line.c_str())) {
        static_cast<void>(list.release());
        list.reset(longer);
    }
}

HeaderList MakeHeaderList(const TransferDetail& detail)
{
    HeaderList list;
    AppendLine(list, "Cache-control: no-cache");
    for (const auto& [name, value] : detail.headers) {
        std::string line = name;
        line += ": ";
        line += value;
        AppendLine(list, line);
    }
    return list;
}

// Initialises libcurl once, on first use, for the rest of the process.
class InitGlobalCurlEasy
{
public:
    static void InitialiseCurl() { static const InitGlobalCurlEasy curl; }

    InitGlobalCurlEasy(const InitGlobalCurlEasy&) = delete;
    InitGlobalCurlEasy& operator=(const InitGlobalCurlEasy&) = delete;

private:
    InitGlobalCurlEasy() { curl_global_init(CURL_GLOBAL_ALL); }
    ~InitGlobalCurlEasy() { curl_global_cleanup(); }
};

}  // namespace

// The options are set in one fixed order.
ITransferHandler::Result CurlEasyHandler::DoTransfer(const TransferDetail& detail) const
{
    LOG_DEBUG("url: " << detail.url);
    Result result;
    const EasyHandle handle(curl_easy_init());
    if (!handle) {
        return result;
    }
    const bool wantHeader = PrepareDelivery(detail.headerBuffer, detail.headerCallback);
    const bool wantBody = PrepareDelivery(detail.dataBuffer, detail.dataCallback) &&
                          detail.method != Configuration::HttpMethod::EhttpHead;

    SetCurlOption<CURLOPT_URL>(handle.get(), detail.url.c_str());
    SetMethod(handle.get(), detail);
    SetDelivery(handle.get(), detail, wantHeader, wantBody);
    SetConduct(handle.get(), detail);
    HeaderList headers = MakeHeaderList(detail);
    SetCurlOption<CURLOPT_HTTPHEADER>(handle.get(), headers.get());

    const RunningTransfer running(handle.get());
    const CURLcode code = curl_easy_perform(handle.get());
    headers.reset();
    running.RethrowIfAny();

    result.httpCode = std::make_unique<long>(0);
    curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, result.httpCode.get());
    result.success = code == CURLE_OK;
    if (!result.success) {
        LOG_ERROR("curl_easy_perform() failed: '" << curl_easy_strerror(code)
                                                  << "', http-code: " << *result.httpCode
                                                  << " accessing " << detail.url.c_str());
    }
    return result;
}

std::size_t CurlEasyHandler::s_ReadBodyCallback(char* buffer, std::size_t size, std::size_t nmemb,
                                                void* userdata)
try {
    const auto* const detail = static_cast<const TransferDetail*>(userdata);
    if (!detail) {
        return 0;
    }
    const std::size_t remain = detail->requestBody.size() - detail->bodyOffset;
    const std::size_t bufferSize = size * nmemb;
    LOG_DEBUG("remain: " << remain << " buffer-size: " << bufferSize);
    const std::size_t count = std::min(bufferSize, remain);
    if (count > 0) {
        std::memcpy(buffer, detail->requestBody.data() + detail->bodyOffset, count);
        detail->bodyOffset += count;
    }
    return count;
} catch (...) {
    RunningTransfer::Keep();
    return CURL_READFUNC_ABORT;  // 0 would end the upload short and leave the server waiting
}

std::size_t CurlEasyHandler::s_WriteHeaderCallback(char* data, std::size_t size, std::size_t nmemb,
                                                   void* userdata)
try {
    return s_WriteCallback(data, size * nmemb, static_cast<const TransferDetail*>(userdata), true);
} catch (...) {
    RunningTransfer::Keep();
    return 0;
}

std::size_t CurlEasyHandler::s_WriteBodyCallback(char* data, std::size_t size, std::size_t nmemb,
                                                 void* userdata)
try {
    return s_WriteCallback(data, size * nmemb, static_cast<const TransferDetail*>(userdata), false);
} catch (...) {
    RunningTransfer::Keep();
    return 0;
}

std::size_t CurlEasyHandler::s_WriteCallback(const void* data, std::size_t size,
                                             const TransferDetail* detail, bool isHeader)
{
    if (!detail) {
        return 0;
    }
    // Ranges of bytes: libstdc++ copies a range of char into a vector of bytes one by one.
    const auto* const first = static_cast<const std::uint8_t*>(data);
    Bytes* const buffer = isHeader ? detail->headerBuffer : detail->dataBuffer;
    const ChunkCallback& callback = isHeader ? detail->headerCallback : detail->dataCallback;
    if (buffer && static_cast<std::ptrdiff_t>(size) >= 1) {
        if (!isHeader) {
            ReserveAnnounced(*buffer, size);
        }
        buffer->insert(buffer->end(), first, first + size);
    }
    if (!callback || callback(std::make_unique<Bytes>(first, first + size), detail->userData)) {
        return size;
    }
    LOG_DEBUG("callback failed processing: " << detail->url);
    return 0;
}

std::unique_ptr<ITransferHandler> CurlEasyHandlerFactory::Create()
{
    InitGlobalCurlEasy::InitialiseCurl();
    return std::make_unique<CurlEasyHandler>();
}

CurlEasyHandlerFactory::~CurlEasyHandlerFactory() = default;

}  // namespace VORTAN_MW
