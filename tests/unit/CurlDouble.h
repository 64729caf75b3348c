#pragma once

#include <curl/curl.h>

#include <boost/optional.hpp>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// What one perform of the double can do to the program: call the functions that were set as
// options.
class CurlDoublePerform
{
public:
    explicit CurlDoublePerform(CURL* handle) : m_Handle(handle) {}

    // Deliver bytes; return what the function returned.
    std::size_t Header(std::string bytes) const;
    std::size_t Body(std::string bytes) const;
    // Asks for at most size bytes to upload; code takes what the function returned.
    std::string Read(std::size_t size, std::size_t* code = nullptr) const;

private:
    CURL* m_Handle;
};

// Stands in libcurl's place in the test program: writes every call down in the form
//
//     easy_setopt URL "http://server/"
//     easy_setopt HEADERDATA detail
//
// and answers as the test says. One at a time. Its end fails the test if a handle or a list line is
// left over.
class CurlDouble
{
public:
    using Perform = std::function<CURLcode(const CurlDoublePerform&)>;

    CurlDouble();
    ~CurlDouble();
    CurlDouble(const CurlDouble&) = delete;
    CurlDouble& operator=(const CurlDouble&) = delete;

    const std::vector<std::string>& Calls() const;
    // Those of the calls that begin like this.
    std::vector<std::string> CallsOf(const std::string& beginning) const;
    // The name under which a pointer is written down.
    void Name(const void* pointer, const std::string& name);

    bool initFails = false;
    CURLcode optionResult = CURLE_OK;
    // Lines that cannot be appended to a list.
    std::vector<std::string> refusedLines;
    Perform perform = [](const CurlDoublePerform&) { return CURLE_OK; };
    // As libcurl says it: -1 if the server did not announce how long the body is.
    curl_off_t announcedLength = -1;
    // Absent: libcurl has no answer and writes none.
    boost::optional<long> responseCode = 200L;
};

// The calls of curl_global_init and curl_global_cleanup in this process so far, with or without a
// double; cleanups are told on standard error as well, as they come at the process's end.
int CurlGlobalInits();
