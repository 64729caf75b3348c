#include "KitClient.h"

#include <AsyncTransferAgentManager.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "Gate.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::TransferEvent;

namespace {

// The servers are on this machine.
[[maybe_unused]] const bool IsWithoutProxy = [] {
    for (const char* const variable :
         {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
        unsetenv(variable);  // NOLINT(concurrency-mt-unsafe): no thread runs yet
    }
    return true;
}();

}  // namespace

KIT::TransferPolicy LocalPolicy()
{
    KIT::TransferPolicy policy;
    policy.SetSchemes({"http"})
        .SetBackoff(std::chrono::milliseconds(1))
        .SetLongestBackoff(std::chrono::seconds(5))
        .SetSeed(1);
    return policy;
}

Configuration Request(const std::string& url, HttpMethod method, const std::string& body)
{
    Configuration request;
    request.url = url;
    request.method = method;
    request.requestBody = body;
    return request;
}

void RecordingObserver::OnEvent(const TransferEvent& event)
{
    events.push_back({event.GetKind(), event.GetAttempt(), event.GetBytesDelivered(),
                      event.GetBytesExpected(), event.GetBytesUploaded(), event.GetHttpStatus(),
                      event.GetDelay(), event.GetOutcome().GetCategory(),
                      event.GetOutcome().GetSentence(), event.IsConnectionKept(),
                      event.GetTotalTime(), event.GetRedirectTarget()});
}

std::size_t RecordingObserver::Count(TransferEvent::Kind kind) const
{
    return static_cast<std::size_t>(std::count_if(
        events.begin(), events.end(), [kind](const Event& event) { return event.kind == kind; }));
}

namespace {

using Chunk = std::unique_ptr<ITransferHandler::Bytes>;

void Note(const ITransferHandler::Result& result, Received& received)
{
    received.success = result.success;
    received.status = result.httpCode ? *result.httpCode : -1;
}

Received FetchThroughAgent(KIT::HttpSession& session, const Configuration& configuration,
                           const KIT::TransferOptions& options, bool segmented)
{
    Received received;
    Gate over;
    const auto agent = AsyncTransferAgentManager::Create();
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    static_cast<Configuration&>(*request) = configuration;
    request->segmented = segmented;
    request->handlerFactory = session.MakeFactory(options);
    request->headerCallback = [&received](const Chunk& chunk, void*) {
        if (chunk) {
            received.header.append(chunk->begin(), chunk->end());
            ++received.headerChunks;
        }
    };
    request->dataCallback = [&received](const Chunk& chunk, void*) {
        if (chunk) {
            received.body.append(chunk->begin(), chunk->end());
        }
    };
    request->completeCallback = [&received, &over](const ITransferHandler::Result& result, void*) {
        Note(result, received);
        over.Open();
    };
    EXPECT_NE(agent->RequestTransfer(std::move(request)), ITransferAgentManager::InvalidHandle);
    over.Wait();
    return received;
}

}  // namespace

Received Fetch(KIT::HttpSession& session, const Configuration& request,
               const KIT::TransferOptions& options)
{
    Received received;
    const auto factory = session.MakeFactory(options);
    const auto result = factory->Create()->GetTransfer(
        request,
        [&received](const Chunk& chunk, void*) {
            received.header.append(chunk->begin(), chunk->end());
            ++received.headerChunks;
            return true;
        },
        [&received](const Chunk& chunk, void*) {
            received.body.append(chunk->begin(), chunk->end());
            return true;
        },
        nullptr);
    Note(result, received);
    return received;
}

Course Watch(KIT::HttpSession& session, const Configuration& request, KIT::TransferOptions options,
             Way way)
{
    Course course;
    course.observer = std::make_shared<RecordingObserver>();
    options.SetObserver(course.observer);
    course.received = way == Way::WithoutAgent
                          ? Fetch(session, request, options)
                          : FetchThroughAgent(session, request, options, way == Way::Segmented);
    return course;
}

Course KitPromise::Watch(const Configuration& request, const KIT::TransferOptions& options)
{
    return ::Watch(session, request, options, GetParam());
}

Course KitPromise::WatchWith(const KIT::TransferPolicy& policy, const Configuration& request,
                             const KIT::TransferOptions& options)
{
    KIT::HttpSession own(policy);
    return ::Watch(own, request, options, GetParam());
}

std::string NameOfWay(const ::testing::TestParamInfo<Way>& way)
{
    constexpr const char* names[] = {"WithoutAgent", "Plain", "Segmented"};
    return names[static_cast<int>(way.param)];
}
