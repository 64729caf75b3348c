#include "KitClient.h"

#include <algorithm>
#include <cstdlib>

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
    policy.SetSchemes({"http", "https"})
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
                      event.GetTotalTime()});
}

std::size_t RecordingObserver::Count(TransferEvent::Kind kind) const
{
    return static_cast<std::size_t>(std::count_if(
        events.begin(), events.end(), [kind](const Event& event) { return event.kind == kind; }));
}

Received Fetch(KIT::HttpSession& session, const Configuration& request,
               const KIT::TransferOptions& options)
{
    using Chunk = std::unique_ptr<ITransferHandler::Bytes>;
    Received received;
    const auto factory = session.MakeFactory(options);
    const auto result = factory->Create()->GetTransfer(
        request,
        [&received](Chunk chunk, void*) {
            received.header.append(chunk->begin(), chunk->end());
            ++received.headerChunks;
            return true;
        },
        [&received](Chunk chunk, void*) {
            received.body.append(chunk->begin(), chunk->end());
            return true;
        },
        nullptr);
    received.success = result.success;
    received.status = result.httpCode ? *result.httpCode : -1;
    return received;
}

Course Watch(KIT::HttpSession& session, const Configuration& request, KIT::TransferOptions options)
{
    Course course;
    course.observer = std::make_shared<RecordingObserver>();
    options.SetObserver(course.observer);
    course.received = Fetch(session, request, options);
    return course;
}
