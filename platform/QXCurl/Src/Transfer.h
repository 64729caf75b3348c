#pragma once

#include <curl/curl.h>

#include <exception>
#include <memory>
#include <string>

#include "Settings.h"

namespace QXCurl {

// One of the client's callbacks during a transfer. What it throws must not cross libcurl's frames,
// which cannot be unwound everywhere: it is kept until libcurl has returned.
struct Stream
{
    Callback callback;
    void* userData;
    std::exception_ptr thrown;
};

struct HeaderListDeleter
{
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

// How a request went.
struct Outcome
{
    long responseCode = 0;  // the HTTP status, 0 if there was no response
    std::string error;      // empty if it succeeded
};

// Sends requests with libcurl.
class Transfer
{
public:
    // To be called before the first request. False if libcurl cannot be used.
    bool Prepare();

    // Performs the request. What a callback throws ends it and leaves this function.
    Outcome Send(const Settings& settings);

private:
    struct HandleDeleter
    {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };

    template <CURLoption option, typename T>
    void m_Apply(T value);
    void m_ApplyConduct(const OptionValues& options);
    void m_ApplyMethod(const OptionValues& options, Stream& upload);
    void m_ApplySinks(const OptionValues& options, Stream& header, Stream& body);
    void m_ApplySsl(const Settings& settings);
    void m_ApplyTimeouts(const Settings& settings);
    Outcome m_Perform(const std::string& url);

    std::unique_ptr<CURL, HandleDeleter> m_Handle;
};

}  // namespace QXCurl
