#pragma once

#include <curl/curl.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace VORTAN_MW {
namespace KIT {

// One owner for each kind of libcurl object.
struct CurlDeleter
{
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using EasyHandle = std::unique_ptr<CURL, CurlDeleter>;

struct MultiDeleter
{
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiDeleter>;

struct ListDeleter
{
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, ListDeleter>;

struct UrlDeleter
{
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlDeleter>;

struct TextDeleter
{
    void operator()(char* text) const { curl_free(text); }
};
using CurlText = std::unique_ptr<char, TextDeleter>;

inline void Append(HeaderList& list, const std::string& line)
{
    curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
    if (!longer) {
        throw std::bad_alloc();
    }
    static_cast<void>(list.release());
    list.reset(longer);
}

// A call of libcurl's that must not fail has failed.
class CurlFailure : public std::runtime_error
{
public:
    explicit CurlFailure(CURLcode code) : std::runtime_error("libcurl"), m_Code(code) {}

    CURLcode Code() const { return m_Code; }

private:
    CURLcode m_Code;
};

inline void CheckCurl(CURLcode code)
{
    if (code == CURLE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    if (code != CURLE_OK) {
        throw CurlFailure(code);
    }
}

// Sets an option whose failure fails the transfer: without it a bound or a rule would be missing.
// Of a variadic argument libcurl reads as many bytes as the option's type has, so value must be of
// exactly that type.
template <CURLoption option, typename T>
void SetOption(CURL* easy, T value)
{
    if constexpr (option >= CURLOPTTYPE_OFF_T) {
        static_assert(std::is_same_v<T, curl_off_t>);
    } else if constexpr (option >= CURLOPTTYPE_FUNCTIONPOINT) {
        static_assert(std::is_function_v<std::remove_pointer_t<T>>);
    } else if constexpr (option >= CURLOPTTYPE_OBJECTPOINT) {
        static_assert(std::is_pointer_v<T> && !std::is_function_v<std::remove_pointer_t<T>>);
    } else {
        static_assert(std::is_same_v<T, long>);
    }
    CheckCurl(curl_easy_setopt(easy, option, value));
}

template <CURLINFO info>
curl_off_t GetOffset(CURL* easy)
{
    static_assert((info & CURLINFO_TYPEMASK) == CURLINFO_OFF_T);
    curl_off_t value = 0;
    curl_easy_getinfo(easy, info, &value);
    return value;
}

template <CURLINFO info>
long GetLong(CURL* easy)
{
    static_assert((info & CURLINFO_TYPEMASK) == CURLINFO_LONG);
    long value = 0;
    curl_easy_getinfo(easy, info, &value);
    return value;
}

}  // namespace KIT
}  // namespace VORTAN_MW
