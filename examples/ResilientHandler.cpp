#include "ResilientHandler.h"

#include <curl/curl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <exception>
#include <limits>
#include <new>
#include <string>
#include <system_error>

using VORTAN_MW::ITransferHandler;

//! [stop]
// Tells any number of transfers to stop, whatever they wait for: from then on its file descriptor
// is readable.
class StopSignal
{
public:
    StopSignal() : m_Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (m_Descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;
    ~StopSignal() { close(m_Descriptor); }

    void Stop()
    {
        m_Stopped = true;
        eventfd_write(m_Descriptor, 1);
    }

    bool IsStopped() const { return m_Stopped; }
    int Descriptor() const { return m_Descriptor; }

private:
    const int m_Descriptor;
    std::atomic<bool> m_Stopped{false};
};
//! [stop]

namespace {

using Bytes = ITransferHandler::Bytes;
using Method = ITransferHandler::Configuration::HttpMethod;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

struct EasyCleanup
{
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct MultiCleanup
{
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct ListCleanup
{
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, ListCleanup>;

void Append(List& list, const std::string& line)
{
    curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
    if (!longer) {
        throw std::bad_alloc();
    }
    static_cast<void>(list.release());
    list.reset(longer);
}

// One transfer, with as many requests as it takes.
class Transfer
{
public:
    Transfer(const ITransferHandler::TransferDetail& detail, const ResilientLimits& limits,
             const StopSignal& stop)
        : m_Detail(detail),
          m_Limits(limits),
          m_Stop(stop),
          m_Multi(curl_multi_init()),
          m_Easy(curl_easy_init()),
          m_End(limits.altogether.count() > 0 ? Clock::now() + limits.altogether
                                              : Clock::time_point::max())
    {
        if (!m_Multi || !m_Easy) {
            throw std::bad_alloc();
        }
    }

    ITransferHandler::Result Run()
    {
        m_EmptyBuffers();
        m_SetRequest();
        m_SetCallbacks();
        m_SetLimits();
        CURLcode code = m_Perform();
        for (int left = m_Limits.resumes; left > 0 && m_CanResume(code); --left) {
            m_SetResumption();
            code = m_Perform();
        }
        if (m_Exception) {
            std::rethrow_exception(m_Exception);
        }
        return m_Result(code);
    }

private:
    // Of variadic arguments, libcurl reads what the option says: the type must be exact.
    template <typename T>
    void m_Set(CURLoption option, T value)
    {
        curl_easy_setopt(m_Easy.get(), option, value);
    }

    void m_EmptyBuffers() const
    {
        for (Bytes* const buffer : {m_Detail.headerBuffer, m_Detail.dataBuffer}) {
            if (buffer) {
                buffer->clear();
            }
        }
    }

    void m_SetRequest()
    {
        const auto size = static_cast<curl_off_t>(m_Detail.requestBody.size());
        m_Set(CURLOPT_URL, m_Detail.url.c_str());
        m_Set(CURLOPT_FOLLOWLOCATION, 1L);
        m_Set(CURLOPT_FAILONERROR, static_cast<long>(m_Detail.failOnError));
        if (m_Detail.method == Method::EhttpPost) {
            m_Set(CURLOPT_POST, 1L);
            m_Set(CURLOPT_POSTFIELDSIZE_LARGE, size);
            m_Set(CURLOPT_POSTREDIR, long{CURL_REDIR_POST_ALL});
        } else if (m_Detail.method == Method::EhttpPut) {
            m_Set(CURLOPT_UPLOAD, 1L);
            m_Set(CURLOPT_INFILESIZE_LARGE, size);
        } else if (m_Detail.method == Method::EhttpHead ||
                   (!m_Detail.dataBuffer && !m_Detail.dataCallback)) {
            m_Set(CURLOPT_NOBODY, 1L);
        }
        m_SetHeaders("");
    }

    void m_SetHeaders(const std::string& further)
    {
        List lines;
        for (const auto& header : m_Detail.headers) {
            Append(lines, header.first + ": " + header.second);
        }
        if (!further.empty()) {
            Append(lines, further);
        }
        m_Set(CURLOPT_HTTPHEADER, lines.get());
        m_Headers = std::move(lines);
    }

    void m_SetCallbacks()
    {
        void* const self = this;
        m_Set<curl_write_callback>(CURLOPT_HEADERFUNCTION, &s_WriteHeader);
        m_Set(CURLOPT_HEADERDATA, self);
        m_Set<curl_write_callback>(CURLOPT_WRITEFUNCTION, &s_WriteBody);
        m_Set(CURLOPT_WRITEDATA, self);
        //! [rewind]
        m_Set<curl_read_callback>(CURLOPT_READFUNCTION, &s_ReadUpload);
        m_Set(CURLOPT_READDATA, self);
        m_Set<curl_seek_callback>(CURLOPT_SEEKFUNCTION, &s_SeekUpload);
        m_Set(CURLOPT_SEEKDATA, self);
        //! [rewind]
    }

    //! [timeouts]
    void m_SetLimits()
    {
        m_Set(CURLOPT_NOSIGNAL, 1L);  // signals are no way to keep time beside other threads
        // Never wait for a thread that looks up a name: it may end whenever it likes.
        m_Set(CURLOPT_QUICK_EXIT, 1L);
        m_Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_Limits.connecting.count()));
        if (m_Limits.silence.count() > 0) {
            m_Set(CURLOPT_LOW_SPEED_LIMIT, 1L);  // bytes per second
            m_Set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(m_Limits.silence.count()));
        }
    }
    //! [timeouts]

    // Performs one request, until it is over or the stop signal comes.
    CURLcode m_Perform()
    {
        if (m_End != Clock::time_point::max()) {
            const auto left = std::chrono::duration_cast<Milliseconds>(m_End - Clock::now());
            m_Set(CURLOPT_TIMEOUT_MS, std::max(1L, static_cast<long>(left.count())));
        }
        curl_multi_add_handle(m_Multi.get(), m_Easy.get());
        const CURLcode code = m_Drive();
        curl_multi_remove_handle(m_Multi.get(), m_Easy.get());
        return code;
    }

    //! [drive]
    CURLcode m_Drive()
    {
        curl_waitfd stop = {m_Stop.Descriptor(), CURL_WAIT_POLLIN, 0};
        while (!m_Stop.IsStopped()) {
            int running = 0;
            if (curl_multi_perform(m_Multi.get(), &running) != CURLM_OK) {
                return CURLE_FAILED_INIT;
            }
            if (running == 0) {
                int queued = 0;
                return curl_multi_info_read(m_Multi.get(), &queued)->data.result;
            }
            // Until a byte can be moved, a time-out of the request is over or the signal comes.
            curl_multi_poll(m_Multi.get(), &stop, 1, std::numeric_limits<int>::max(), nullptr);
        }
        return CURLE_ABORTED_BY_CALLBACK;
    }
    //! [drive]

    //! [resume]
    // A part of the body has arrived, the connection is gone, and the server has given a strong
    // ETag, by which it can tell whether the rest is still of the same version.
    bool m_CanResume(CURLcode code)
    {
        const bool brokeOff = code == CURLE_PARTIAL_FILE || code == CURLE_RECV_ERROR ||
                              code == CURLE_OPERATION_TIMEDOUT || code == CURLE_COULDNT_CONNECT ||
                              code == CURLE_GOT_NOTHING;
        const bool isDownload =
            m_Detail.method == Method::Default || m_Detail.method == Method::EhttpGet;
        if (!brokeOff || !isDownload || m_Received == 0 || Clock::now() >= m_End) {
            return false;
        }
        if (m_Tag.empty()) {
            m_Tag = m_StrongTag();
        }
        return !m_Tag.empty();
    }

    void m_SetResumption()
    {
        m_Resumed = true;
        m_SetHeaders("If-Range: " + m_Tag);
        // From here on libcurl accepts no answer but this range.
        m_Set(CURLOPT_RESUME_FROM_LARGE, m_Received);
    }

    // The ETag of the last response if it is a strong one, otherwise empty.
    std::string m_StrongTag() const
    {
        curl_header* tag = nullptr;
        const bool hasTag =
            curl_easy_header(m_Easy.get(), "ETag", 0, CURLH_HEADER, -1, &tag) == CURLHE_OK;
        return hasTag && tag->value[0] == '"' ? tag->value : "";
    }
    //! [resume]

    ITransferHandler::Result m_Result(CURLcode code) const
    {
        long status = 0;
        curl_easy_getinfo(m_Easy.get(), CURLINFO_RESPONSE_CODE, &status);
        ITransferHandler::Result result;
        // libcurl itself does not mind a range that the server does not have.
        const bool hasRange = !m_Resumed || status == PartialContent;
        result.success = code == CURLE_OK && hasRange;
        result.httpCode = std::make_unique<long>(status);
        return result;
    }

    // No exception may cross libcurl's frames: the first is kept, and the request fails.
    template <typename Step>
    bool m_Guarded(const Step& step)
    {
        try {
            return !m_Exception && step();
        } catch (...) {
            m_Exception = std::current_exception();
            return false;
        }
    }

    bool m_Deliver(const Bytes& chunk, Bytes* buffer,
                   const ITransferHandler::ChunkCallback& callback)
    {
        if (buffer) {
            buffer->insert(buffer->end(), chunk.begin(), chunk.end());
        }
        return !callback || callback(std::make_unique<Bytes>(chunk), m_Detail.userData);
    }

    bool m_TakeHeader(const Bytes& line)
    {
        return m_Resumed || m_Deliver(line, m_Detail.headerBuffer, m_Detail.headerCallback);
    }

    bool m_TakeBody(const Bytes& chunk)
    {
        m_Received += static_cast<curl_off_t>(chunk.size());
        return m_Deliver(chunk, m_Detail.dataBuffer, m_Detail.dataCallback);
    }

    static std::size_t s_WriteHeader(char* data, std::size_t, std::size_t size, void* self)
    {
        auto* const transfer = static_cast<Transfer*>(self);
        const bool taken =
            transfer->m_Guarded([&] { return transfer->m_TakeHeader(Bytes(data, data + size)); });
        return taken ? size : 0;
    }

    static std::size_t s_WriteBody(char* data, std::size_t, std::size_t size, void* self)
    {
        auto* const transfer = static_cast<Transfer*>(self);
        const bool taken =
            transfer->m_Guarded([&] { return transfer->m_TakeBody(Bytes(data, data + size)); });
        return taken ? size : 0;
    }

    static std::size_t s_ReadUpload(char* data, std::size_t, std::size_t size, void* self)
    {
        const ITransferHandler::TransferDetail& detail = static_cast<Transfer*>(self)->m_Detail;
        const std::size_t count = detail.requestBody.copy(data, size, detail.bodyOffset);
        detail.bodyOffset += count;
        return count;
    }

    static int s_SeekUpload(void* self, curl_off_t offset, int)
    {
        static_cast<Transfer*>(self)->m_Detail.bodyOffset = static_cast<std::size_t>(offset);
        return CURL_SEEKFUNC_OK;
    }

    static constexpr long PartialContent = 206;

    const ITransferHandler::TransferDetail& m_Detail;
    const ResilientLimits& m_Limits;
    const StopSignal& m_Stop;
    List m_Headers;  // outlives the handle
    const std::unique_ptr<CURLM, MultiCleanup> m_Multi;
    const std::unique_ptr<CURL, EasyCleanup> m_Easy;
    const Clock::time_point m_End;
    curl_off_t m_Received = 0;
    bool m_Resumed = false;
    std::string m_Tag;
    std::exception_ptr m_Exception;
};

class ResilientHandler : public ITransferHandler
{
public:
    ResilientHandler(const ResilientLimits& limits, std::shared_ptr<const StopSignal> stop)
        : m_Limits(limits), m_Stop(std::move(stop))
    {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        return Transfer(detail, m_Limits, *m_Stop).Run();
    }

private:
    const ResilientLimits m_Limits;
    const std::shared_ptr<const StopSignal> m_Stop;
};

}  // namespace

ResilientHandlerFactory::ResilientHandlerFactory(const ResilientLimits& limits)
    : m_Limits(limits), m_Stop(std::make_shared<StopSignal>())
{
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_ALL);
    static_cast<void>(initialised);
}

std::unique_ptr<ITransferHandler> ResilientHandlerFactory::Create()
{
    return std::make_unique<ResilientHandler>(m_Limits, m_Stop);
}

ResilientHandlerFactory::~ResilientHandlerFactory()
{
    m_Stop->Stop();
}
