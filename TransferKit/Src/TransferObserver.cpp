#include "TransferObserver.h"

#include <utility>

#include "EventData.h"

namespace VORTAN_MW {
namespace KIT {

ITransferObserver::~ITransferObserver() = default;

TransferOutcome::TransferOutcome(std::shared_ptr<const Data> data) : m_Data(std::move(data)) {}
// The data of an event's outcome is the event's, and changes.
TransferOutcome::TransferOutcome(const TransferOutcome& other)
    : m_Data(std::make_shared<const Data>(*other.m_Data))
{}
TransferOutcome& TransferOutcome::operator=(const TransferOutcome& other)
{
    TransferOutcome copy(other);
    m_Data.swap(copy.m_Data);
    return *this;
}
TransferOutcome::~TransferOutcome() = default;

Category TransferOutcome::GetCategory() const
{
    return m_Data->category;
}

long TransferOutcome::GetHttpStatus() const
{
    return m_Data->httpStatus;
}

const std::string& TransferOutcome::GetSentence() const
{
    return m_Data->sentence;
}

TransferEvent::TransferEvent() = default;
TransferEvent::~TransferEvent() = default;

const TransferOutcome& TransferEvent::GetOutcome() const
{
    return *m_Data->shown;
}

TransferEvent::Kind TransferEvent::GetKind() const
{
    return m_Data->kind;
}

std::uint32_t TransferEvent::GetAttempt() const
{
    return m_Data->attempt;
}

std::uint64_t TransferEvent::GetBytesDelivered() const
{
    return m_Data->delivered;
}

std::int64_t TransferEvent::GetBytesExpected() const
{
    return m_Data->expected;
}

std::uint64_t TransferEvent::GetBytesUploaded() const
{
    return m_Data->uploaded;
}

long TransferEvent::GetHttpStatus() const
{
    return m_Data->httpStatus;
}

const std::string& TransferEvent::GetRedirectTarget() const
{
    return m_Data->redirectTarget;
}

std::chrono::milliseconds TransferEvent::GetDelay() const
{
    return m_Data->delay;
}

bool TransferEvent::IsConnectionKept() const
{
    return m_Data->isKept;
}

std::chrono::microseconds TransferEvent::GetNameLookupTime() const
{
    return m_Data->nameLookup;
}

std::chrono::microseconds TransferEvent::GetConnectTime() const
{
    return m_Data->connect;
}

std::chrono::microseconds TransferEvent::GetTlsTime() const
{
    return m_Data->tls;
}

std::chrono::microseconds TransferEvent::GetFirstByteTime() const
{
    return m_Data->firstByte;
}

std::chrono::microseconds TransferEvent::GetTotalTime() const
{
    return m_Data->total;
}

}  // namespace KIT
}  // namespace VORTAN_MW
