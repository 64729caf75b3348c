#include "Transfer.h"

#include <algorithm>
#include <array>
#include <climits>
#include <mutex>
#include <new>
#include <utility>

#include "CurlOption.h"

namespace QXCurl {

namespace {

// Takes out of a handle what does not outlive one request.
class ScopedReset
{
public:
    explicit ScopedReset(CURL* handle) : m_Handle(handle) {}
    ScopedReset(const ScopedReset&) = delete;
    ScopedReset& operator=(const ScopedReset&) = delete;
    ~ScopedReset() { curl_easy_reset(m_Handle); }

private:
    CURL* m_Handle;
};

// Returns false if the callback threw.
bool Call(Stream& stream, char* data, std::size_t size, std::size_t& result)
try {
    result = stream.callback(data, 1, static_cast<unsigned int>(size), stream.userData);
    return true;
} catch (...) {
    stream.thrown = std::current_exception();
    return false;
}

// libcurl's write, header and read functions. The last argument is the Stream.

std::size_t Receive(char* data, std::size_t size, std::size_t count, void* stream)
{
    const std::size_t offered = size * count;
    std::size_t taken = 0;
    const bool returned = Call(*static_cast<Stream*>(stream), data, offered, taken);
    return returned && taken == offered ? offered : 0;
}

std::size_t Drop(char* /*data*/, std::size_t size, std::size_t count, void* /*stream*/)
{
    return size * count;
}

std::size_t Supply(char* buffer, std::size_t size, std::size_t count, void* stream)
{
    const std::size_t capacity = size * count;
    std::size_t given = 0;
    const bool returned = Call(*static_cast<Stream*>(stream), buffer, capacity, given);
    return returned && given <= capacity ? given : CURL_READFUNC_ABORT;
}

std::size_t SupplyNothing(char* /*buffer*/, std::size_t /*size*/, std::size_t /*count*/,
                          void* /*stream*/)
{
    return 0;
}

long CurlHttpVersion(long long number)
{
    switch (number) {
        case 1:
            return CURL_HTTP_VERSION_1_0;
        case 2:
            return CURL_HTTP_VERSION_1_1;
        case 3:
            return CURL_HTTP_VERSION_2_0;
        default:
            return CURL_HTTP_VERSION_NONE;
    }
}

Stream MakeStream(const OptionValues& options, QXCURL_OPTION_TYPE callback,
                  QXCURL_OPTION_TYPE userData)
{
    return {options.Get<Callback>(callback, nullptr), options.Get<void*>(userData, nullptr),
            nullptr};
}

void AppendLine(HeaderList& list, const std::string& line)
{
    curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
    if (!longer) {
        throw std::bad_alloc();
    }
    static_cast<void>(list.release());
    list.reset(longer);
}

HeaderList MakeHeaders(const Settings& settings)
{
    HeaderList list;
    const auto lines = settings.options.Get<std::list<std::string>>(QXCURL_OPTION_HTTPHEADER, {});
    for (const std::string& line : lines) {
        AppendLine(list, line);
    }
    if (settings.sendClient) {
        AppendLine(list, "X-Vistrel-Client: " + settings.client);
    }
    return list;
}

// Once for the process, or once more for each time that it fails; never cleaned up, as transfers
// may run until the very end of the process.
bool InitialiseCurl()
{
    static std::mutex mutex;
    static bool initialised = false;
    const std::lock_guard<std::mutex> lock(mutex);
    initialised = initialised || curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return initialised;
}

}  // namespace

bool Transfer::Prepare()
{
    m_Handle.reset(InitialiseCurl() ? curl_easy_init() : nullptr);
    return m_Handle != nullptr;
}

Outcome Transfer::Send(const Settings& settings)
{
    if (!m_Handle) {
        return {0, "the handle has not been initialised"};
    }
    const OptionValues& options = settings.options;
    Stream upload = MakeStream(options, QXCURL_OPTION_READFUNCTION, QXCURL_OPTION_READDATA);
    Stream header = MakeStream(options, QXCURL_OPTION_HEADERFUNCTION, QXCURL_OPTION_HEADERDATA);
    Stream body = MakeStream(options, QXCURL_OPTION_WRITEFUNCTION, QXCURL_OPTION_WRITEDATA);
    const HeaderList headers = MakeHeaders(settings);
    Outcome outcome;
    {
        const ScopedReset reset(m_Handle.get());
        m_ApplyConduct(options);
        m_ApplyMethod(options, upload);
        m_ApplySinks(options, header, body);
        m_ApplySsl(settings);
        m_ApplyTimeouts(settings);
        m_Apply<CURLOPT_HTTPHEADER>(headers.get());
        outcome = m_Perform(options.Get<std::string>(QXCURL_OPTION_URL, {}));
    }
    for (const Stream* const stream : {&upload, &header, &body}) {
        if (stream->thrown) {
            std::rethrow_exception(stream->thrown);
        }
    }
    return outcome;
}

template <CURLoption option, typename T>
void Transfer::m_Apply(T value)
{
    VORTAN_MW::UTILS::SetCurlOption<option>(m_Handle.get(), value);
}

void Transfer::m_ApplyConduct(const OptionValues& options)
{
    m_Apply<CURLOPT_PROTOCOLS_STR>("http,https");
    m_Apply<CURLOPT_HTTP_VERSION>(
        CurlHttpVersion(options.Get<long long>(QXCURL_OPTION_HTTP_VERSION, 0)));
    m_Apply<CURLOPT_VERBOSE>(long{options.IsOn(QXCURL_OPTION_VERBOSE)});
    m_Apply<CURLOPT_NOSIGNAL>(1L);  // signals and threads do not mix
}

void Transfer::m_ApplyMethod(const OptionValues& options, Stream& upload)
{
    const bool uploads = upload.callback != nullptr;
    const curl_off_t size = uploads ? options.Get<long long>(QXCURL_OPTION_INFILESIZE, -1) : 0;
    if (options.IsOn(QXCURL_OPTION_PUT) || options.IsOn(QXCURL_OPTION_UPLOAD)) {
        m_Apply<CURLOPT_UPLOAD>(1L);
        m_Apply<CURLOPT_INFILESIZE_LARGE>(size);
    } else if (options.IsOn(QXCURL_OPTION_POST)) {
        m_Apply<CURLOPT_POST>(1L);
        m_Apply<CURLOPT_POSTFIELDSIZE_LARGE>(size);
    } else {
        m_Apply<CURLOPT_NOBODY>(long{options.IsOn(QXCURL_OPTION_NOBODY)});
    }
    m_Apply<CURLOPT_READFUNCTION>(uploads ? &Supply : &SupplyNothing);
    m_Apply<CURLOPT_READDATA>(&upload);
}

void Transfer::m_ApplySinks(const OptionValues& options, Stream& header, Stream& body)
{
    if (header.callback) {
        m_Apply<CURLOPT_HEADERFUNCTION>(&Receive);
        m_Apply<CURLOPT_HEADERDATA>(&header);
    }
    const bool wanted = body.callback && !options.IsOn(QXCURL_OPTION_NOBODY);
    m_Apply<CURLOPT_WRITEFUNCTION>(wanted ? &Receive : &Drop);
    m_Apply<CURLOPT_WRITEDATA>(&body);
}

void Transfer::m_ApplySsl(const Settings& settings)
{
    const bool verify = settings.options.Get<long long>(QXCURL_OPTION_SSL_VERIFYPEER, 1) != 0;
    m_Apply<CURLOPT_SSL_VERIFYPEER>(long{verify});
    if (!settings.caFile.empty()) {
        m_Apply<CURLOPT_CAINFO>(settings.caFile.c_str());
        m_Apply<CURLOPT_CAPATH, const char*>(nullptr);  // not the system's beside it
    }
}

void Transfer::m_ApplyTimeouts(const Settings& settings)
{
    // libcurl counts to no more. To it, 0 is no limit for the transfer, but a limit of its own for
    // connecting: there the longest stands for none.
    constexpr int longest = INT_MAX / 1000;
    const int transfer = std::clamp(settings.transferTimeout, 0, longest);
    const int connection = std::clamp(settings.connectionTimeout, 0, longest);
    m_Apply<CURLOPT_TIMEOUT>(long{transfer});
    m_Apply<CURLOPT_CONNECTTIMEOUT>(long{connection == 0 ? longest : connection});
}

Outcome Transfer::m_Perform(const std::string& url)
{
    std::array<char, CURL_ERROR_SIZE> detail{};
    m_Apply<CURLOPT_ERRORBUFFER>(detail.data());
    m_Apply<CURLOPT_URL>(url.c_str());
    const CURLcode code = curl_easy_perform(m_Handle.get());
    m_Apply<CURLOPT_ERRORBUFFER, char*>(nullptr);
    Outcome outcome;
    static_cast<void>(
        curl_easy_getinfo(m_Handle.get(), CURLINFO_RESPONSE_CODE, &outcome.responseCode));
    if (code != CURLE_OK) {
        const std::string separator = detail.front() == '\0' ? "" : ": ";
        outcome.error = curl_easy_strerror(code) + separator + detail.data() + ", accessing " + url;
    }
    return outcome;
}

}  // namespace QXCurl
