#pragma once

#include <curl/curl.h>

#include <string>

#include "TransferObserver.h"

namespace VORTAN_MW {
namespace KIT {

// What libcurl's verdict on a request means. mayPass: the same request may succeed later.
struct Failure
{
    Category category = Category::Internal;
    bool mayPass = false;
};

// systemError is the errno of the connection attempt, 0 if unknown.
Failure FailureOf(CURLcode code, long systemError);

// Whether a response of this status says that the same request may succeed later.
bool MayPass(long status);

// The sentence for people. host and detail may be empty; status counts for Category::HttpStatus
// only.
std::string SentenceOf(Category category, const std::string& host, long status,
                       const std::string& detail = std::string());

}  // namespace KIT
}  // namespace VORTAN_MW
