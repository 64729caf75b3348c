#include "FailingCurl.h"

#include <curl/curl.h>
#include <dlfcn.h>

#include <cstdarg>

// The real functions are macros to some compilers.
#undef curl_easy_setopt
#undef curl_easy_getinfo

namespace {

CallCount s_Calls;
// The handles and the lines of lists that nobody has freed.
long s_Live = 0;
// libcurl makes a handle for itself there.
bool s_Performing = false;

// The function that this program's takes the place of.
template <typename Function>
Function* Real(Function* /*own*/, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

const curl_easyoption& Describe(CURLoption option)
{
    return *curl_easy_option_by_id(option);
}

bool IsNeverRefused(CURLoption option)
{
    const curl_easytype type = Describe(option).type;
    return type == CURLOT_FUNCTION || type == CURLOT_CBPTR || type == CURLOT_OBJECT ||
           option == CURLOPT_UPLOAD;
}

// The range of an option's number says as which type libcurl reads the argument.
CURLcode Forward(CURL* handle, CURLoption option, va_list arguments)
{
    const auto set = Real(&curl_easy_setopt, "curl_easy_setopt");
    if (option >= CURLOPTTYPE_OFF_T) {
        return set(handle, option, va_arg(arguments, curl_off_t));
    }
    if (option >= CURLOPTTYPE_OBJECTPOINT) {
        return set(handle, option, va_arg(arguments, void*));
    }
    return set(handle, option, va_arg(arguments, long));
}

}  // namespace

const Fault failingCurl = {[](long number) { s_Calls.Arm(number); },
                           [] { return s_Calls.Disarm(); }, [] { return s_Live; }, true,
                           "std::bad_alloc"};

// libcurl's own signatures have an enumeration before the ellipsis, which is as wide as an int.
#pragma GCC diagnostic ignored "-Wvarargs"
// Called by a shared library as well.
#pragma GCC visibility push(default)

extern "C" {

CURLcode curl_global_init(long flags)
{
    if (s_Calls.Fails("global_init")) {
        return CURLE_FAILED_INIT;
    }
    return Real(&curl_global_init, "curl_global_init")(flags);
}

CURL* curl_easy_init()
{
    const auto init = Real(&curl_easy_init, "curl_easy_init");
    if (s_Performing) {
        return init();
    }
    if (s_Calls.Fails("easy_init")) {
        return nullptr;
    }
    ++s_Live;
    return init();
}

void curl_easy_cleanup(CURL* handle)
{
    --s_Live;
    Real(&curl_easy_cleanup, "curl_easy_cleanup")(handle);
}

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...)
{
    const bool fails = s_Calls.Fails(std::string("easy_setopt ") + Describe(option).name);
    CURLcode code = CURLE_OK;
    if (!fails || IsNeverRefused(option)) {
        va_list arguments;
        va_start(arguments, option);
        code = Forward(handle, option, arguments);
        va_end(arguments);
    }
    return fails ? CURLE_OUT_OF_MEMORY : code;
}

CURLcode curl_easy_perform(CURL* handle)
{
    if (s_Calls.Fails("easy_perform")) {
        return CURLE_OUT_OF_MEMORY;
    }
    s_Performing = true;
    const CURLcode code = Real(&curl_easy_perform, "curl_easy_perform")(handle);
    s_Performing = false;
    return code;
}

CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...)
{
    if (s_Calls.Fails(info == CURLINFO_RESPONSE_CODE ? "easy_getinfo RESPONSE_CODE"
                                                     : "easy_getinfo CONTENT_LENGTH_DOWNLOAD_T")) {
        return CURLE_UNKNOWN_OPTION;
    }
    va_list arguments;
    va_start(arguments, info);
    void* const value = va_arg(arguments, void*);
    va_end(arguments);
    return Real(&curl_easy_getinfo, "curl_easy_getinfo")(handle, info, value);
}

curl_slist* curl_slist_append(curl_slist* list, const char* text)
{
    if (s_Calls.Fails(std::string("slist_append ") + text)) {
        return nullptr;
    }
    ++s_Live;
    return Real(&curl_slist_append, "curl_slist_append")(list, text);
}

void curl_slist_free_all(curl_slist* list)
{
    for (const curl_slist* line = list; line; line = line->next) {
        --s_Live;
    }
    Real(&curl_slist_free_all, "curl_slist_free_all")(list);
}

}  // extern "C"

#pragma GCC visibility pop
