#include "Transfer.h"

#include <strings.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <utility>

#include "FailureLog.h"
#include "RequestRules.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

using SteadyClock = std::chrono::steady_clock;

// A short body that nobody wants is read, so that its connection can be kept.
constexpr std::uint64_t MostDropped = 65536;

std::chrono::microseconds TimeOf(curl_off_t microseconds)
{
    return std::chrono::microseconds(microseconds);
}

// libcurl decodes what it knows, also where it was not asked for.
bool IsExpectedEncoding(const HeaderCollector& header)
{
    if (header.Count("Content-Encoding") == 0) {
        return true;
    }
    const std::string encoding = header.Value("Content-Encoding").value_or("");
    for (const char* const known : {"gzip", "x-gzip", "deflate", "identity"}) {
        if (strcasecmp(encoding.c_str(), known) == 0) {
            return true;
        }
    }
    return false;
}

bool LeadsElsewhere(const HeaderCollector& header)
{
    return IsRedirect(header.Status()) && header.Count("Location") > 0;
}

// The URL without its query, which in a redirect often is a signature that differs each time.
std::string ResourceOf(const Hop& hop)
{
    return hop.url.text.substr(0, hop.url.text.find_first_of("?#"));
}

// Of several lengths, libcurl takes the last one; it ignores what it cannot represent, and what
// follows a number. Others would see the body end elsewhere.
bool IsLengthClear(const HeaderCollector& header)
{
    if (header.Count("Transfer-Encoding") > 0 || header.Count("Content-Length") == 0) {
        return true;
    }
    const auto length = ParseNumber(header.Value("Content-Length").value_or(""));
    return length &&
           *length <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
}

}  // namespace

Transfer::Transfer(SessionCore& core, const ITransferHandler::TransferDetail& detail,
                   const TransferOptionsData& options, const TransferFiles& files,
                   StopListener& listener)
    : m_Core(core),
      m_Detail(detail),
      m_Options(options),
      m_Files(files),
      m_Listener(listener),
      m_Deadline(SteadyClock::now() + core.policy.altogether),
      m_File(files.target ? std::make_optional<PartFile>(*files.target) : std::nullopt),
      m_Sink(detail, m_File ? &*m_File : nullptr),
      m_Retry(core.policy, core.budget, core.jitter)
{}

ITransferHandler::Result Transfer::Run()
{
    while (const std::optional<Milliseconds> wait = Proceed()) {
        if (m_Listener.WaitFor(*wait)) {
            StopWaiting(Category::Cancelled);
            break;
        }
    }
    return Conclude();
}

std::optional<Milliseconds> Transfer::Proceed()
{
    try {
        return m_RunAttempt();
    } catch (const std::bad_alloc&) {
        m_End(Category::OutOfMemory);
    } catch (const CurlFailure&) {
        m_End(Category::Internal);
    }
    return std::nullopt;
}

void Transfer::StopWaiting(Category reason)
{
    m_End(m_Sink.HasRefused() ? Category::ClientStopped : reason);
}

ITransferHandler::Result Transfer::Conclude()
{
    m_Easy = nullptr;
    m_CloseFile();
    LogFailure(m_Event.outcome, m_Event.attempt);
    m_Report(TransferEvent::Kind::End);
    m_Sink.RethrowIfAny();
    ITransferHandler::Result result;
    result.success = m_Event.outcome.category == Category::Success;
    result.httpCode.reset(new (std::nothrow) long(m_Status));
    return result;
}

std::optional<Milliseconds> Transfer::m_RunAttempt()
{
    if (!m_IsPrepared && !m_Prepare()) {
        return std::nullopt;
    }
    m_IsPrepared = true;
    ++m_Event.attempt;
    m_Report(TransferEvent::Kind::Attempt);
    const std::uint64_t before = m_Sink.Delivered();
    m_IsWaitDecided = false;
    const Failure failure = m_Attempt();
    m_Event.outcome.category = failure.category;
    if (failure.category == Category::Success) {
        m_Core.budget.GiveBack();
        m_EndAttempts();
        return std::nullopt;
    }
    if (!m_IsWaitDecided) {
        m_Wait = m_NextWait(failure, m_Sink.Delivered() > before && !m_HasStartedOver);
    }
    if (!m_Wait || !failure.mayPass) {
        m_EndAttempts();
        return std::nullopt;
    }
    m_End(failure.category);
    m_Event.delay = *m_Wait;
    m_Report(TransferEvent::Kind::Retry);
    LogRetry(m_Event);
    return m_Wait;
}

void Transfer::m_EndAttempts()
{
    const Category category = m_Event.outcome.category;
    const bool isOfFile = m_File && m_File->Fault() == category;
    m_End(category, isOfFile ? m_File->Detail() : m_Reason);
}

// False if the request must not be sent.
bool Transfer::m_Prepare()
{
    std::optional<Url> url = Url::Parse(m_Detail.url);
    std::string reason = ReasonToRefuse(m_Detail, url, m_Options, m_Core.policy);
    if (reason.empty() && m_File) {
        reason = ReasonToWriteNoFile(m_Detail);
    }
    if (!reason.empty()) {
        m_End(Category::InvalidRequest, reason);
        return false;
    }
    m_First.url = std::move(*url);
    m_First.method = m_Detail.method;
    m_First.hasBody = m_Detail.method == Method::EhttpPost || m_Detail.method == Method::EhttpPut;
    if (m_First.hasBody) {
        m_Body = m_Files.uploadPath.empty() ? MakeMemorySource(m_Detail)
                                            : OpenFileSource(m_Files.uploadPath);
    }
    if (m_First.hasBody && !m_Body) {
        m_End(Category::UploadFailed);
        return false;
    }
    return !m_File || m_OpenFile();
}

// Follows redirects until a response ends the chain.
Failure Transfer::m_Attempt()
{
    m_Event.isKept = false;
    m_HeaderBytes = 0;
    m_HasSent = false;
    m_HasStartedOver = false;
    if (m_File && m_HasDelivered() && !m_IsContinuable()) {
        m_StartOver();
    }
    Hop hop = m_First;
    for (;;) {
        const Failure failure = m_Request(hop);
        if (m_SendsAgain && failure.category == Category::Changed) {
            m_SendsAgain = false;
            hop = m_First;
            continue;
        }
        if (!m_Next || failure.category != Category::Success) {
            return failure;
        }
        hop = std::move(*m_Next);
    }
}

Failure Transfer::m_Request(const Hop& hop)
{
    m_Hop = &hop;
    m_Next.reset();
    m_Failure.reset();
    m_RetryAfter.reset();
    m_Reason = "";
    m_Treatment = Treatment::Deliver;
    m_IsHeaderComplete = false;
    m_IsConnectionReported = false;
    m_IsContinuation = false;
    m_Skip = 0;
    m_Dropped = 0;
    m_PendingHeader.clear();
    m_Trailer.clear();
    PooledHandlePtr handle = m_TakeHandle(hop.url.Origin());
    if (!handle) {
        const bool isStopped = m_Listener.IsStopped();
        return {isStopped ? Category::Cancelled : Category::TimedOut, false};
    }
    if (m_Body && !m_Body->Seek(0)) {
        return {Category::UploadFailed, false};
    }
    const Exchange::Request request = m_Describe(hop);
    HeaderCollector header(m_Core.policy.longestHeader - m_HeaderBytes);
    Exchange exchange(*handle, request, header, *this);
    exchange.SetUp();
    m_Easy = handle->Easy();
    TransferLoop loop(*handle, m_Listener, m_Core.policy, m_Deadline, *this);
    const TransferLoop::End end = loop.Run();
    m_HeaderBytes += header.Length();
    m_Trailer = header.Trailer();
    m_IsHeaderComplete = header.IsComplete();
    m_NoteTimings();
    m_Easy = nullptr;
    m_HasSent = m_HasSent || GetLong<CURLINFO_REQUEST_SIZE>(handle->Easy()) > 0;
    const Failure failure = m_Classify(end, loop.Code(), *handle, exchange.Fault());
    m_Core.pool.GiveBack(std::move(handle));
    return failure.category == Category::Success && !m_Next ? m_Finish() : failure;
}

// Waits while too many abandoned look-ups are under way. Null when the transfer ends meanwhile.
PooledHandlePtr Transfer::m_TakeHandle(const std::string& origin)
{
    constexpr Milliseconds interval(20);
    PooledHandlePtr handle = m_Core.pool.Take(origin);
    while (!handle && m_TimeLeft().count() > 0 && !m_Listener.WaitFor(interval)) {
        handle = m_Core.pool.Take(origin);
    }
    return handle;
}

Exchange::Request Transfer::m_Describe(const Hop& hop) const
{
    const bool isPost = hop.method == Method::EhttpPost;
    Exchange::Request request{hop,
                              m_Detail,
                              m_Options,
                              m_Core.policy,
                              m_Core.authorities,
                              hop.hasBody ? m_Body.get() : nullptr,
                              m_Sink.WantsBody(),
                              isPost && !m_Options.isPostRepeatable,
                              !m_Core.policy.continuation && !m_File,
                              std::string(),
                              std::string()};
    if (m_HasDelivered()) {
        request.range = std::to_string(m_Sink.Delivered()) + "-";
        request.validator = m_Continuation.Validator();
    }
    return request;
}

void Transfer::m_NoteTimings()
{
    CURL* const easy = m_Easy;
    if (!easy || !m_Options.observer) {
        return;
    }
    m_Event.isKept = GetLong<CURLINFO_NUM_CONNECTS>(easy) == 0;
    m_Event.nameLookup = TimeOf(GetOffset<CURLINFO_NAMELOOKUP_TIME_T>(easy));
    m_Event.connect = TimeOf(GetOffset<CURLINFO_CONNECT_TIME_T>(easy));
    m_Event.tls = TimeOf(GetOffset<CURLINFO_APPCONNECT_TIME_T>(easy));
    m_Event.firstByte = TimeOf(GetOffset<CURLINFO_STARTTRANSFER_TIME_T>(easy));
    m_Event.total = TimeOf(GetOffset<CURLINFO_TOTAL_TIME_T>(easy));
    m_Event.uploaded = static_cast<std::uint64_t>(GetOffset<CURLINFO_SIZE_UPLOAD_T>(easy));
}

Failure Transfer::m_Classify(TransferLoop::End end, CURLcode code, PooledHandle& handle,
                             Category fault)
{
    if (m_Sink.HasRefused()) {
        return {Category::ClientStopped, false};
    }
    if (end == TransferLoop::End::Stopped) {
        return {Category::Cancelled, false};
    }
    if (fault != Category::Success) {
        return {fault, false};
    }
    if (m_File && m_File->Fault() != Category::Success) {
        return {m_File->Fault(), false};
    }
    if (m_Failure || m_Next) {  // the header has decided, however the rest went
        return m_Failure.value_or(Failure{Category::Success, false});
    }
    if (end == TransferLoop::End::TooLate) {
        return {Category::TimedOut, m_TimeLeft().count() > 0};
    }
    if (code != CURLE_OK) {
        return handle.Tls().IsRefused()
                   ? Failure{Category::TlsFailed, false}
                   : FailureOf(code, GetLong<CURLINFO_OS_ERRNO>(handle.Easy()));
    }
    // libcurl is content with a header that was cut short.
    return m_IsHeaderComplete ? Failure{Category::Success, false}
                              : Failure{Category::ConnectionLost, true};
}

// The response is whole: delivers what the client has not got yet. The file takes its name last,
// when nobody can object any more.
Failure Transfer::m_Finish()
{
    if (m_Skip > 0) {  // the same version, and shorter than before
        return {Category::InvalidResponse, false};
    }
    if (m_IsShort()) {
        return {Category::ConnectionLost, true};
    }
    const bool isTaken =
        m_DeliverPendingHeader() &&
        (m_Trailer.empty() || !m_Sink.WantsHeader() || m_Sink.DeliverHeader(m_Trailer)) &&
        m_Sink.Flush();
    if (!isTaken) {
        return {Category::ClientStopped, false};
    }
    const bool isWhole = !m_File || m_IsUnmodified || m_File->Commit();
    return {isWhole ? Category::Success : m_File->Fault(), false};
}

std::optional<Milliseconds> Transfer::m_NextWait(const Failure& failure, bool delivered)
{
    RetryRule::FailedAttempt attempt;
    attempt.mayPass = failure.mayPass;
    attempt.isRepeatable = m_IsRepeatable();
    attempt.delivered = delivered;
    attempt.retryAfter = m_RetryAfter;
    return m_Retry.Next(attempt, SteadyClock::now(), m_TimeLeft());
}

bool Transfer::m_IsRepeatable() const
{
    if (m_HasResponse) {
        return m_IsContinuable() || (m_File && m_IsGet());
    }
    return m_Detail.method != Method::EhttpPost || m_Options.isPostRepeatable || !m_HasSent;
}

bool Transfer::m_IsGet() const
{
    return m_Detail.method == Method::Default || m_Detail.method == Method::EhttpGet;
}

bool Transfer::m_MayContinue() const
{
    return m_IsGet() && m_Core.policy.continuation && !HasHeader(m_Detail, "Range") &&
           !HasHeader(m_Detail, "If-Range");
}

bool Transfer::m_IsContinuable() const
{
    return m_MayContinue() && m_HasDelivered() && m_Continuation.IsPossible();
}

// Of the first response libcurl checks the length itself. Of a further one it knows the part's own
// length at most, and that may not be what Content-Range says.
bool Transfer::m_IsBeyondTheEnd(std::size_t length) const
{
    const auto& total = m_Continuation.Total();
    return m_IsContinuation && total && m_Sink.Delivered() + length > *total;
}

bool Transfer::m_IsShort() const
{
    const auto& total = m_Continuation.Total();
    return m_IsContinuation && total && m_Sink.Delivered() < *total;
}

Milliseconds Transfer::m_TimeLeft() const
{
    return std::chrono::duration_cast<Milliseconds>(m_Deadline - SteadyClock::now());
}

bool Transfer::OnHeader(const HeaderCollector& header)
{
    OnConnected();  // a quick server is heard before the loop has had time to look
    if (!m_HasResponse) {
        m_Status = header.Status();
    }
    m_HasSent = true;
    m_ReportHeader(header);
    if (m_Sink.HasRefused()) {
        return false;
    }
    if (!IsLengthClear(header)) {
        return m_Fail(Category::InvalidResponse);
    }
    if (LeadsElsewhere(header)) {
        return m_OnRedirect(header);
    }
    const bool isSuccess = header.Status() >= 200 && header.Status() < 300;
    if (m_HasResponse || (m_IsResumed && (isSuccess || header.Status() == 416))) {
        return m_OnContinuation(header);
    }
    return header.Status() >= 400 ? m_OnFailureStatus(header) : m_OnResponse(header);
}

bool Transfer::m_OnRedirect(const HeaderCollector& header)
{
    m_Treatment = Treatment::Drop;
    m_Next =
        Follow(*m_Hop, header.Status(), header.Value("Location").value_or("\n"), m_Core.policy);
    return m_Next ? true : m_Fail(Category::RedirectRefused);
}

bool Transfer::m_OnFailureStatus(const HeaderCollector& header)
{
    const Failure failure{Category::HttpStatus, MayPass(header.Status())};
    if (failure.mayPass) {
        m_RetryAfter = ParseRetryAfter(header.Value("Retry-After").value_or(""),
                                       static_cast<std::int64_t>(std::time(nullptr)));
    }
    m_Wait = m_NextWait(failure, false);
    m_IsWaitDecided = true;
    if (!m_Wait && !m_Detail.failOnError && !m_File) {
        return m_OnResponse(header);
    }
    m_Treatment = Treatment::Drop;
    m_Failure = failure;
    if (!m_Wait) {
        m_PendingHeader = header.Block();
        return m_DeliverPendingHeader();
    }
    return true;
}

// A response to the request for the rest of a body.
bool Transfer::m_OnContinuation(const HeaderCollector& header)
{
    if (header.Status() >= 400 && header.Status() != 416) {
        m_Treatment = Treatment::Drop;
        m_Failure = Failure{Category::HttpStatus, MayPass(header.Status())};
        m_RetryAfter = ParseRetryAfter(header.Value("Retry-After").value_or(""),
                                       static_cast<std::int64_t>(std::time(nullptr)));
        return true;
    }
    if (ResourceOf(*m_Hop) != m_Resource) {
        // Its validator says nothing about the first one's.
        return m_File ? m_OnOtherVersion(header) : m_Fail(Category::Changed);
    }
    m_IsContinuation = true;
    switch (m_Continuation.Judge(header, m_Sink.Delivered())) {
        case Continuation::Verdict::Rest:
            return m_OnRest(header);
        case Continuation::Verdict::Whole:
            m_Skip = m_Sink.Delivered();
            return m_OnRest(header);
        case Continuation::Verdict::Complete:
            m_Treatment = Treatment::Drop;
            m_Failure = Failure{Category::Success, false};
            return m_OnRest(header);
        case Continuation::Verdict::Changed:
            return m_File ? m_OnOtherVersion(header) : m_Fail(Category::Changed);
        case Continuation::Verdict::Invalid:
            break;
    }
    return m_File ? m_OnOtherVersion(header) : m_Fail(Category::InvalidResponse);
}

// Of a file that an earlier run has begun, this is the first response.
bool Transfer::m_OnRest(const HeaderCollector& header)
{
    if (m_HasResponse) {
        return true;
    }
    m_PendingHeader = header.Block();
    return !m_File || m_File->Reserve();
}

bool Transfer::m_OnResponse(const HeaderCollector& header)
{
    if (!m_Core.policy.continuation && !IsExpectedEncoding(header)) {
        return m_Fail(Category::InvalidResponse);
    }
    m_Continuation = Continuation();
    if (header.Status() == 200) {
        m_Continuation.Begin(header);
        m_Resource = ResourceOf(*m_Hop);
    }
    if (header.Status() == 206 && !HasHeader(m_Detail, "Range")) {
        return m_Fail(Category::InvalidResponse);  // a part that nobody asked for
    }
    const auto length = header.Count("Transfer-Encoding") == 0
                            ? ParseNumber(header.Value("Content-Length").value_or(""))
                            : std::nullopt;
    const bool isBodyComing = m_Sink.WantsBody() && m_Detail.method != Method::EhttpHead;
    const std::uint64_t longest = m_Core.policy.longestBody;
    if (length && isBodyComing && longest > 0 && *length > longest) {
        return m_Fail(Category::TooLarge);
    }
    if (length && isBodyComing) {
        m_Event.expected = static_cast<std::int64_t>(
            std::min<std::uint64_t>(*length, std::numeric_limits<std::int64_t>::max()));
        m_Sink.Announce(*length);
    }
    if (m_File && !m_BeginFile(header, length)) {
        return false;
    }
    m_PendingHeader = header.Block();
    return true;
}

// Ends the request for a reason that the response gave.
bool Transfer::m_Fail(Category category, const char* reason)
{
    m_Failure = Failure{category, false};
    m_Reason = reason;
    return false;
}

bool Transfer::m_DeliverPendingHeader()
{
    if (m_HasResponse) {
        return true;
    }
    m_HasResponse = true;
    return !m_Sink.WantsHeader() || m_Sink.DeliverHeader(m_PendingHeader);
}

bool Transfer::OnBody(const char* data, std::size_t length)
{
    if (m_Treatment == Treatment::Drop) {
        m_Dropped += length;
        return m_Dropped <= MostDropped;
    }
    const auto skipped = static_cast<std::size_t>(std::min<std::uint64_t>(m_Skip, length));
    m_Skip -= skipped;
    data += skipped;
    length -= skipped;
    const std::uint64_t longest = m_Core.policy.longestBody;
    if (longest > 0 && m_Sink.Delivered() + length > longest) {
        return m_Fail(Category::TooLarge);
    }
    if (m_IsBeyondTheEnd(length)) {
        return m_Fail(Category::InvalidResponse);
    }
    return length == 0 || (m_DeliverPendingHeader() && m_Sink.DeliverBody(data, length));
}

void Transfer::OnConnected()
{
    if (!m_IsConnectionReported) {
        m_IsConnectionReported = true;
        m_Report(TransferEvent::Kind::Connection);
    }
}

// The last bytes before a pause are reported, too.
std::optional<Milliseconds> Transfer::OnMoved()
{
    constexpr Milliseconds interval(100);
    if (!m_Options.observer) {
        return std::nullopt;
    }
    const auto now = SteadyClock::now();
    if (now - m_ReportedAt < interval) {
        return std::chrono::ceil<Milliseconds>(interval - (now - m_ReportedAt));
    }
    m_ReportedAt = now;
    m_Report(TransferEvent::Kind::Progress);
    return std::nullopt;
}

void Transfer::m_ReportHeader(const HeaderCollector& header)
{
    m_Event.httpStatus = header.Status();
    if (m_Options.observer && LeadsElsewhere(header)) {
        const std::string location = header.Value("Location").value_or("");
        const std::optional<Url> target = m_Hop->url.Resolve(location);
        m_Event.redirectTarget = target ? target->text : location;
    }
    m_Report(TransferEvent::Kind::Header);
    m_Event.redirectTarget.clear();
}

void Transfer::m_Report(TransferEvent::Kind kind)
{
    if (!m_Options.observer) {
        return;
    }
    m_NoteTimings();
    m_Event.kind = kind;
    m_Event.delivered = m_Sink.Delivered();
    try {
        EventAccess::Report(*m_Options.observer, m_Event);
    } catch (...) {
        m_Sink.KeepException();
        m_Listener.Stop();
    }
}

// Says how the transfer, or its attempt, ended.
void Transfer::m_End(Category category, const std::string& detail)
{
    m_Event.outcome.category = category;
    m_Event.outcome.httpStatus = m_Event.httpStatus;
    if (category == Category::Success && !m_Options.observer) {
        return;
    }
    try {
        m_Event.outcome.sentence =
            category == Category::InvalidRequest && !detail.empty()
                ? "The request was refused because " + detail + "."
                : SentenceOf(category, m_First.url.host, m_Event.httpStatus, detail);
    } catch (const std::bad_alloc&) {
        m_Event.outcome.sentence.clear();
    }
}

}  // namespace KIT
}  // namespace VORTAN_MW
