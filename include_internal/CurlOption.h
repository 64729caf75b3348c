#pragma once

#include <curl/curl.h>

#include <type_traits>

namespace VORTAN_MW {
namespace UTILS {

// Whether curl_easy_setopt reads an option's value as a T, which the range of the option's number
// tells. Read, write and header functions are of one type.
template <CURLoption option, typename T>
constexpr bool IsReadAs()
{
    if (option >= CURLOPTTYPE_OFF_T) {
        return std::is_same_v<T, curl_off_t>;
    }
    if (option >= CURLOPTTYPE_FUNCTIONPOINT) {
        return std::is_same_v<T, curl_write_callback>;
    }
    if (option >= CURLOPTTYPE_OBJECTPOINT) {
        return std::is_pointer_v<T> && !std::is_function_v<std::remove_pointer_t<T>>;
    }
    return std::is_same_v<T, long>;
}

// Sets an option of a libcurl handle. A variadic argument of another width than libcurl reads goes
// wrong on 32 bits, where a curl_off_t is twice as wide as a long; so value must be exactly of the
// option's type. The result is ignored, as a request goes out with the options that this libcurl
// knows.
template <CURLoption option, typename T>
void SetCurlOption(CURL* handle, T value)
{
    static_assert(IsReadAs<option, T>(), "not the type that libcurl reads");
    static_cast<void>(curl_easy_setopt(handle, option, value));
}

}  // namespace UTILS
}  // namespace VORTAN_MW
