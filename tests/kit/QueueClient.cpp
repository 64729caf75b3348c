#include "QueueClient.h"

#include <algorithm>
#include <utility>

#include "Patience.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)

void RecordingQueueObserver::OnEvent(Ticket ticket, const KIT::TransferEvent& event)
{
    const Kind kind = event.GetKind();
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        Record& record = m_Records[ticket];
        record.isOutcomeLast = record.isOutcomeLast && record.outcomes.empty();
        record.events.push_back(kind);
        record.threads.insert(std::this_thread::get_id());
        m_Changed.notify_all();
    }
    if (whenTold) {
        whenTold(ticket, kind);
    }
}

void RecordingQueueObserver::OnOutcome(Ticket ticket, const KIT::TransferOutcome& outcome)
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        Record& record = m_Records[ticket];
        record.outcomes.push_back(outcome.GetCategory());
        record.status = outcome.GetHttpStatus();
        record.sentence = outcome.GetSentence();
        record.threads.insert(std::this_thread::get_id());
        m_Changed.notify_all();
    }
    if (whenOver) {
        whenOver(ticket);
    }
}

RecordingQueueObserver::Record RecordingQueueObserver::Of(Ticket ticket) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto found = m_Records.find(ticket);
    return found == m_Records.end() ? Record() : found->second;
}

std::size_t RecordingQueueObserver::m_CountOfOutcomes() const
{
    std::size_t count = 0;
    for (const auto& [ticket, record] : m_Records) {
        count += record.outcomes.size();
    }
    return count;
}

std::size_t RecordingQueueObserver::CountOfOutcomes() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_CountOfOutcomes();
}

std::size_t RecordingQueueObserver::Count(Category category) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    std::size_t count = 0;
    for (const auto& [ticket, record] : m_Records) {
        count += static_cast<std::size_t>(
            std::count(record.outcomes.begin(), record.outcomes.end(), category));
    }
    return count;
}

RecordingQueueObserver::Category RecordingQueueObserver::OutcomeOf(Ticket ticket) const
{
    std::vector<Category> outcomes;
    m_WaitUntil("the outcome of ticket " + std::to_string(ticket), [&] {
        const auto found = m_Records.find(ticket);
        if (found != m_Records.end()) {
            outcomes = found->second.outcomes;
        }
        return !outcomes.empty();
    });
    EXPECT_EQ(outcomes.size(), 1U);
    return outcomes.empty() ? Category::Internal : outcomes.front();
}

bool RecordingQueueObserver::WaitForOutcomes(std::size_t count) const
{
    return m_WaitUntil(std::to_string(count) + " outcomes",
                       [&] { return m_CountOfOutcomes() >= count; });
}

bool RecordingQueueObserver::WaitFor(Ticket ticket, Kind kind) const
{
    return m_WaitUntil("an event of ticket " + std::to_string(ticket), [&] {
        const auto found = m_Records.find(ticket);
        return found != m_Records.end() &&
               std::count(found->second.events.begin(), found->second.events.end(), kind) > 0;
    });
}

bool RecordingQueueObserver::m_WaitUntil(const std::string& what,
                                         const std::function<bool()>& condition) const
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    const bool isSo = m_Changed.wait_for(lock, Patience, condition);
    EXPECT_TRUE(isSo) << "gave up waiting for " << what;
    return isSo;
}

namespace {

class FunctionHandler : public ITransferHandler
{
public:
    explicit FunctionHandler(FunctionFactory::Function function) : m_Function(std::move(function))
    {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        Result result;
        result.success = m_Function(detail);
        return result;
    }

private:
    const FunctionFactory::Function m_Function;
};

}  // namespace

FunctionFactory::~FunctionFactory()
{
    if (m_WhenDestroyed) {
        m_WhenDestroyed();
    }
}

std::unique_ptr<ITransferHandler> FunctionFactory::Create()
{
    return std::make_unique<FunctionHandler>(m_Function);
}

RequestPtr QueueRequest(const std::string& url)
{
    auto request = std::make_unique<KIT::TransferQueue::TransferConfiguration>();
    request->url = url;
    request->method = HttpMethod::EhttpGet;
    return request;
}

RequestPtr QueueRequest(FunctionFactory::Function function, std::function<void()> whenDestroyed)
{
    RequestPtr request = QueueRequest("function:");
    request->handlerFactory =
        std::make_unique<FunctionFactory>(std::move(function), std::move(whenDestroyed));
    return request;
}

std::shared_ptr<KIT::HttpSession> LocalSession()
{
    return std::make_shared<KIT::HttpSession>(LocalPolicy());
}
