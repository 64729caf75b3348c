#include "CurlDouble.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <memory>
#include <set>

#include "CurlEasyHandler.h"

// The real functions are macros to some compilers.
#undef curl_easy_setopt
#undef curl_easy_getinfo

namespace {

// The read, header and write functions are of one type.
using Transport = curl_write_callback;

struct EasyDouble
{
    std::map<CURLoption, Transport> functions;
    std::map<CURLoption, void*> pointers;
};

struct Record
{
    CurlDouble* owner = nullptr;
    std::vector<std::string> calls;
    std::map<const void*, std::string> names;
    std::map<const void*, std::unique_ptr<EasyDouble>> handles;
    std::set<const curl_slist*> lines;
};

Record& TheRecord()
{
    static Record record;
    return record;
}

std::atomic<int> globalInits{0};

void Note(const std::string& call)
{
    TheRecord().calls.push_back(call);
}

EasyDouble& Find(const void* handle)
{
    const auto found = TheRecord().handles.find(handle);
    if (found != TheRecord().handles.end()) {
        return *found->second;
    }
    ADD_FAILURE() << "a handle that curl_easy_init did not return, or that is cleaned up";
    static EasyDouble none;
    return none;
}

std::string OptionName(CURLoption option)
{
    static const std::map<CURLoption, const char*> names = {
        {CURLOPT_URL, "URL"},
        {CURLOPT_HTTPGET, "HTTPGET"},
        {CURLOPT_NOBODY, "NOBODY"},
        {CURLOPT_POST, "POST"},
        {CURLOPT_READFUNCTION, "READFUNCTION"},
        {CURLOPT_READDATA, "READDATA"},
        {CURLOPT_INFILESIZE_LARGE, "INFILESIZE_LARGE"},
        {CURLOPT_POSTREDIR, "POSTREDIR"},
        {CURLOPT_UPLOAD, "UPLOAD"},
        {static_cast<CURLoption>(54), "PUT"},  // its name in curl.h is marked as deprecated
        {CURLOPT_HEADERFUNCTION, "HEADERFUNCTION"},
        {CURLOPT_HEADERDATA, "HEADERDATA"},
        {CURLOPT_WRITEFUNCTION, "WRITEFUNCTION"},
        {CURLOPT_WRITEDATA, "WRITEDATA"},
        {CURLOPT_USERAGENT, "USERAGENT"},
        {CURLOPT_FAILONERROR, "FAILONERROR"},
        {CURLOPT_FOLLOWLOCATION, "FOLLOWLOCATION"},
        {CURLOPT_ACCEPT_ENCODING, "ACCEPT_ENCODING"},
        {CURLOPT_HTTPHEADER, "HTTPHEADER"},
        {CURLOPT_NOSIGNAL, "NOSIGNAL"},
        {CURLOPT_TIMEOUT, "TIMEOUT"},
        {CURLOPT_CONNECTTIMEOUT, "CONNECTTIMEOUT"},
        {CURLOPT_CAINFO, "CAINFO"},
        {CURLOPT_CAPATH, "CAPATH"},
    };
    const auto found = names.find(option);
    return found == names.end() ? "option " + std::to_string(option) : found->second;
}

std::string PointerName(const void* pointer)
{
    const auto found = TheRecord().names.find(pointer);
    return found == TheRecord().names.end() ? "unknown pointer" : found->second;
}

std::string FunctionName(Transport function)
{
    using VORTAN_MW::CurlEasyHandler;
    if (function == &CurlEasyHandler::s_ReadBodyCallback) {
        return "s_ReadBodyCallback";
    }
    if (function == &CurlEasyHandler::s_WriteHeaderCallback) {
        return "s_WriteHeaderCallback";
    }
    return function == &CurlEasyHandler::s_WriteBodyCallback ? "s_WriteBodyCallback"
                                                             : "unknown function";
}

std::string ListText(const curl_slist* line)
{
    std::string text;
    for (; line; line = line->next) {
        text += (text.empty() ? "" : ", ") + std::string(line->data);
    }
    return "[" + text + "]";
}

// The range of an option's number says as which type libcurl reads the argument.
std::string TakePointer(EasyDouble& easy, CURLoption option, va_list arguments)
{
    switch (option) {
        case CURLOPT_URL:
        case CURLOPT_USERAGENT:
        case CURLOPT_ACCEPT_ENCODING:
        case CURLOPT_CAINFO:
            return '"' + std::string(va_arg(arguments, const char*)) + '"';
        case CURLOPT_HTTPHEADER:
            return ListText(va_arg(arguments, const curl_slist*));
        default:
            return PointerName(easy.pointers[option] = va_arg(arguments, void*));
    }
}

std::string TakeArgument(EasyDouble& easy, CURLoption option, va_list arguments)
{
    if (option >= CURLOPTTYPE_OFF_T) {
        return std::to_string(va_arg(arguments, curl_off_t));
    }
    if (option >= CURLOPTTYPE_FUNCTIONPOINT) {
        return FunctionName(easy.functions[option] = va_arg(arguments, Transport));
    }
    if (option >= CURLOPTTYPE_OBJECTPOINT) {
        return TakePointer(easy, option, arguments);
    }
    return std::to_string(va_arg(arguments, long));
}

std::size_t Call(CURL* handle, CURLoption function, CURLoption pointer, char* bytes,
                 std::size_t size)
{
    EasyDouble& easy = Find(handle);
    const Transport transport = easy.functions[function];
    if (!transport) {
        ADD_FAILURE() << OptionName(function) << " is not set";
        return 0;
    }
    return transport(bytes, 1, size, easy.pointers[pointer]);
}

}  // namespace

std::size_t CurlDoublePerform::Header(std::string bytes) const
{
    return Call(m_Handle, CURLOPT_HEADERFUNCTION, CURLOPT_HEADERDATA, &bytes[0], bytes.size());
}

std::size_t CurlDoublePerform::Body(std::string bytes) const
{
    return Call(m_Handle, CURLOPT_WRITEFUNCTION, CURLOPT_WRITEDATA, &bytes[0], bytes.size());
}

std::string CurlDoublePerform::Read(std::size_t size, std::size_t* code) const
{
    std::string bytes(size, '?');
    const std::size_t count =
        Call(m_Handle, CURLOPT_READFUNCTION, CURLOPT_READDATA, &bytes[0], size);
    if (code) {
        *code = count;
    }
    bytes.resize(std::min(count, size));
    return bytes;
}

CurlDouble::CurlDouble()
{
    TheRecord() = Record();
    TheRecord().owner = this;
}

CurlDouble::~CurlDouble()
{
    EXPECT_EQ(TheRecord().handles.size(), 0U) << "handles that were not cleaned up";
    EXPECT_EQ(TheRecord().lines.size(), 0U) << "header lines that were not freed";
    TheRecord().owner = nullptr;
}

const std::vector<std::string>& CurlDouble::Calls() const
{
    return TheRecord().calls;
}

std::vector<std::string> CurlDouble::CallsOf(const std::string& beginning) const
{
    std::vector<std::string> calls;
    std::copy_if(Calls().begin(), Calls().end(), std::back_inserter(calls),
                 [&](const std::string& call) { return call.rfind(beginning, 0) == 0; });
    return calls;
}

void CurlDouble::Name(const void* pointer, const std::string& name)
{
    TheRecord().names[pointer] = name;
}

int CurlGlobalInits()
{
    return globalInits;
}

// libcurl's own signatures have an enumeration before the ellipsis, which is as wide as an int.
#pragma GCC diagnostic ignored "-Wvarargs"

extern "C" {

CURLcode curl_global_init(long flags)
{
    EXPECT_EQ(flags, 3);
    ++globalInits;
    return CURLE_OK;
}

void curl_global_cleanup()
{
    std::fputs("curl_global_cleanup\n", stderr);
}

CURL* curl_easy_init()
{
    Note("easy_init");
    if (TheRecord().owner->initFails) {
        return nullptr;
    }
    auto easy = std::make_unique<EasyDouble>();
    CURL* const handle = easy.get();
    TheRecord().handles[handle] = std::move(easy);
    return handle;
}

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...)
{
    va_list arguments;
    va_start(arguments, option);
    Note("easy_setopt " + OptionName(option) + " " + TakeArgument(Find(handle), option, arguments));
    va_end(arguments);
    return TheRecord().owner->optionResult;
}

CURLcode curl_easy_perform(CURL* handle)
{
    Note("easy_perform");
    static_cast<void>(Find(handle));
    return TheRecord().owner->perform(CurlDoublePerform(handle));
}

CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...)
{
    const CurlDouble& owner = *TheRecord().owner;
    static_cast<void>(Find(handle));
    va_list arguments;
    va_start(arguments, info);
    CURLcode code = CURLE_UNKNOWN_OPTION;
    if (info == CURLINFO_CONTENT_LENGTH_DOWNLOAD_T) {
        Note("easy_getinfo CONTENT_LENGTH_DOWNLOAD_T");
        *va_arg(arguments, curl_off_t*) = owner.announcedLength;
        code = CURLE_OK;
    } else if (info == CURLINFO_RESPONSE_CODE) {
        Note("easy_getinfo RESPONSE_CODE");
        if (owner.responseCode) {
            *va_arg(arguments, long*) = *owner.responseCode;
            code = CURLE_OK;
        }
    } else {
        Note("easy_getinfo " + std::to_string(info));
    }
    va_end(arguments);
    return code;
}

const char* curl_easy_strerror(CURLcode code)
{
    Note("easy_strerror " + std::to_string(code));
    return "the double's text";
}

void curl_easy_reset(CURL* handle)
{
    Note("easy_reset");
    Find(handle) = EasyDouble();
}

void curl_easy_cleanup(CURL* handle)
{
    Note("easy_cleanup");
    static_cast<void>(Find(handle));
    TheRecord().handles.erase(handle);
}

curl_slist* curl_slist_append(curl_slist* list, const char* text)
{
    Note(std::string("slist_append \"") + text + '"');
    const std::vector<std::string>& refused = TheRecord().owner->refusedLines;
    if (std::find(refused.begin(), refused.end(), text) != refused.end()) {
        return nullptr;
    }
    auto* const line = new curl_slist{new char[std::string(text).size() + 1], nullptr};
    std::copy_n(text, std::string(text).size() + 1, line->data);
    TheRecord().lines.insert(line);
    curl_slist** end = &list;
    while (*end) {
        end = &(*end)->next;
    }
    *end = line;
    return list;
}

void curl_slist_free_all(curl_slist* list)
{
    Note("slist_free_all " + ListText(list));
    while (list) {
        EXPECT_EQ(TheRecord().lines.erase(list), 1U) << "a line that is freed already";
        const std::unique_ptr<curl_slist> line(list);
        const std::unique_ptr<char[]> data(line->data);
        list = line->next;
    }
}

}  // extern "C"
