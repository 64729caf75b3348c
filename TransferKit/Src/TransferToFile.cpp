#include <new>

#include "Transfer.h"

// The body of a transfer becomes a file.

namespace VORTAN_MW {
namespace KIT {

// False if the transfer cannot begin.
bool Transfer::m_OpenFile()
{
    if (!m_File->Open()) {
        m_End(m_File->Fault(), m_File->Detail());
        return false;
    }
    const bool mayResume = m_MayContinue() && m_Files.target->mayContinue;
    const auto kept = mayResume ? m_File->Resume(m_Detail.url, m_Listener) : std::nullopt;
    if (kept) {
        m_IsResumed = true;
        m_Resource = kept->resource;
        m_Continuation.Restore(kept->validator, *kept->total);
        m_Sink.Resume(m_File->Length());
        m_Event.expected = static_cast<std::int64_t>(*kept->total);
    }
    return true;
}

// A response that is not the rest of an earlier one. length: of its body, if the server tells it.
bool Transfer::m_BeginFile(const HeaderCollector& header, std::optional<std::uint64_t> length)
{
    m_IsUnmodified = header.Status() == 304;
    if (m_IsUnmodified) {
        return true;
    }
    if (header.Status() < 200 || header.Status() >= 300) {
        return m_Fail(Category::HttpStatus);
    }
    const bool hasEnd = length || header.Count("Transfer-Encoding") > 0 || header.Status() == 204;
    if (!hasEnd && m_Files.target->needsLength && !m_Files.target->sha256) {
        return m_Fail(Category::InvalidResponse,
                      "without a length or a hash nobody knows whether the body is whole");
    }
    return m_File->Begin({m_Detail.url,
                          m_MayContinue() ? m_Continuation.Validator() : std::string(), length,
                          m_Resource});
}

// The rest of the version that the file has the beginning of cannot be had. If the response is
// another one from its first byte on, it is taken; else the request is sent again without a range.
bool Transfer::m_OnOtherVersion(const HeaderCollector& header)
{
    m_StartOver();
    m_Status = header.Status();
    if (header.Status() != 206 && header.Status() < 300) {
        return m_OnResponse(header);
    }
    m_SendsAgain = true;
    return m_Fail(Category::Changed);
}

// The file itself is emptied when its next response begins.
void Transfer::m_StartOver()
{
    m_Sink.StartOver();
    m_Continuation = Continuation();
    m_Event.expected = -1;
    m_HasResponse = false;
    m_IsContinuation = false;
    m_IsResumed = false;
    m_HasStartedOver = true;
}

void Transfer::m_CloseFile()
{
    if (!m_File) {
        return;
    }
    try {
        m_Sink.Flush();  // of a response that failed
    } catch (const std::bad_alloc&) {
        // Its status tells enough.
    }
    switch (m_Event.outcome.category) {
        case Category::Success:  // after status 304: the part belongs to a version that is outdated
        case Category::InvalidResponse:
        case Category::TooLarge:
        case Category::WrongHash:
            m_File->Close(false);
            break;
        default:
            m_File->Close(true);
            break;
    }
}

}  // namespace KIT
}  // namespace VORTAN_MW
