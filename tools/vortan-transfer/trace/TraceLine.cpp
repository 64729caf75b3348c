#include "trace/TraceLine.h"

#include "base/Json.h"

namespace VORTAN_TRANSFER {

namespace {

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

std::string TraceLineOf(const TraceEvent& event)
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
    return LineOf(json);
}

}  // namespace VORTAN_TRANSFER
