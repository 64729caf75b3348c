#include "report/JsonLine.h"

#include "base/Json.h"

namespace VORTAN_TRANSFER {

std::string JsonLineOf(std::size_t index, const Job& job, const Outcome& outcome)
{
    Json json;
    json["index"] = index;
    json["source"] = job.source.text;
    json["handler"] = job.source.handler->name;
    json["file"] = job.target;
    json["result"] = ResultName(outcome);
    json["error"] = outcome.status == AllSucceeded ? Json() : Json(outcome.cause);
    json["category"] = CategoryName(outcome.category);
    json["http_status"] = outcome.httpStatus ? Json(*outcome.httpStatus) : Json();
    json["bytes"] = outcome.received;
    json["sent"] = outcome.sent;
    json["attempts"] = outcome.attempts;
    json["seconds"] = std::chrono::duration<double>(outcome.time).count();
    return LineOf(json);
}

}  // namespace VORTAN_TRANSFER
