#include "JsonLines.h"

#include <nlohmann/json.hpp>

namespace VORTAN_TRANSFER {

namespace {

using Json = nlohmann::ordered_json;

std::string Line(const Json& json)
{
    constexpr int noIndent = -1;
    constexpr bool asciiOnly = true;
    return json.dump(noIndent, ' ', asciiOnly, Json::error_handler_t::replace) + "\n";
}

const char* NameOf(TraceEvent::Kind kind)
{
    using Kind = TraceEvent::Kind;
    switch (kind) {
        case Kind::Queued:
            return "queued";
        case Kind::Started:
            return "started";
        case Kind::Slept:
            return "slept";
        case Kind::FirstHeader:
            return "first-header";
        case Kind::FirstBody:
            return "first-body";
        case Kind::Chunk:
            return "chunk";
        case Kind::Complete:
            return "complete";
    }
    return "";
}

}  // namespace

std::string JsonLineOf(std::size_t index, const Job& job, const Outcome& outcome)
{
    Json json;
    json["index"] = index;
    json["source"] = job.source.text;
    json["handler"] = job.source.handler->name;
    json["file"] = job.target;
    json["result"] = ResultName(outcome);
    json["error"] = outcome.status == AllSucceeded ? Json() : Json(outcome.cause);
    json["http_status"] = outcome.httpStatus ? Json(*outcome.httpStatus) : Json();
    json["bytes"] = outcome.received;
    json["seconds"] = std::chrono::duration<double>(outcome.time).count();
    return Line(json);
}

std::string JsonLineOf(const TraceEvent& event)
{
    Json json;
    json["time"] = event.time.count();
    json["index"] = event.source;
    json["event"] = NameOf(event.kind);
    if (event.kind == TraceEvent::Kind::Queued) {
        json["source"] = event.text;
    }
    if (event.kind == TraceEvent::Kind::Chunk || event.kind == TraceEvent::Kind::Complete) {
        json["bytes"] = event.bytes;
    }
    if (event.kind == TraceEvent::Kind::Complete) {
        json["result"] = event.text;
    }
    return Line(json);
}

}  // namespace VORTAN_TRANSFER
