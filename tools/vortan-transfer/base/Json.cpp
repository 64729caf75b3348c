#include "base/Json.h"

namespace VORTAN_TRANSFER {

std::string LineOf(const Json& json)
{
    constexpr int noIndent = -1;
    constexpr bool asciiOnly = true;
    return json.dump(noIndent, ' ', asciiOnly, Json::error_handler_t::replace) + "\n";
}

}  // namespace VORTAN_TRANSFER
