#pragma once

#include <list>
#include <memory>
#include <string>

// The device maker's curl wrapper library, as far as it is used here. The numbers are the wrapper's
// own. Where this says "stand-in", it tells what the library of the same name does that is built on
// a host without the device's; the rest holds for both.
namespace QXCurl {

// Options of a transfer. Each takes its value in one type, through the setOption of that type.
//
// "Forwarded": what the number means is the wrapper's affair; the stand-in keeps the value, and it
// has no effect there. The same goes for every number that is not listed.
enum QXCURL_OPTION_TYPE
{
    // long; not 0: verbose output. Stand-in: on standard error.
    QXCURL_OPTION_VERBOSE = 1,
    // long. Forwarded.
    QXCURL_OPTION_3 = 3,
    // int; not 0: the first of the two switches of a PUT. Stand-in: either one makes it a PUT.
    QXCURL_OPTION_PUT = 15,
    // long; not 0: POST.
    QXCURL_OPTION_POST = 16,
    // long; not 0: GET, which is what a request is unless something else is set.
    QXCURL_OPTION_HTTPGET = 17,
    // int; the HTTP version: 1 is 1.0, 2 is 1.1, 3 is 2.0. Stand-in: without it, and for any other
    // number, the two sides agree on one.
    QXCURL_OPTION_HTTP_VERSION = 18,
    // long. Forwarded.
    QXCURL_OPTION_20 = 20,
    // long. Forwarded.
    QXCURL_OPTION_21 = 21,
    // int; not 0: no response body. Stand-in: a HEAD request; a POST or PUT stays what it is, and
    // the body of its response is dropped.
    QXCURL_OPTION_NOBODY = 24,
    // int; not 0: the second of the two switches of a PUT.
    QXCURL_OPTION_UPLOAD = 26,
    // long. Forwarded.
    QXCURL_OPTION_27 = 27,
    // long. Forwarded.
    QXCURL_OPTION_30 = 30,
    // long. Forwarded.
    QXCURL_OPTION_31 = 31,
    // long. Forwarded.
    QXCURL_OPTION_32 = 32,
    // long; 0: the server's certificate is not verified. Stand-in: it must still bear the server's
    // name.
    QXCURL_OPTION_SSL_VERIFYPEER = 39,
    // long long; how many bytes a POST or PUT uploads. Stand-in: without it, they are sent in
    // chunks.
    QXCURL_OPTION_INFILESIZE = 43,
    // string; the URL of the request. Stand-in: http and https only.
    QXCURL_OPTION_URL = 50,
    // list of strings; further request headers, each a line "name: value" without its end.
    // Stand-in: a line with nothing after the colon takes that header out of the request.
    QXCURL_OPTION_HTTPHEADER = 75,
    // callback; receives the response body. Stand-in: without it the body is dropped.
    QXCURL_OPTION_WRITEFUNCTION = 78,
    // callback; fills its buffer with bytes to upload, 0 is the end. Stand-in: without it nothing
    // is uploaded.
    QXCURL_OPTION_READFUNCTION = 79,
    // callback; receives the response's header, line by line.
    QXCURL_OPTION_HEADERFUNCTION = 80,
    // pointer; fourth argument of the callback that receives the body.
    QXCURL_OPTION_WRITEDATA = 86,
    // pointer; fourth argument of the callback that supplies the upload.
    QXCURL_OPTION_READDATA = 87,
    // pointer; fourth argument of the callback that receives the header.
    QXCURL_OPTION_HEADERDATA = 88,
};

// What can be asked after a transfer. Stand-in: nothing else has a value.
enum QXCURL_INFO_TYPE
{
    // The HTTP status of the response; 0 if there was none.
    QXCURL_INFO_RESPONSE_CODE = 8,
};

// One transfer: set up, sent, and asked how it went. One thread at a time may use it.
class [[gnu::visibility("default")]] QXCurlEasy
{
public:
    // The client header that setVistrelHeader adds to the request.
    enum t_HdrOption
    {
        QXCURL_HDR_CLIENT = 1,
    };

    QXCurlEasy();
    ~QXCurlEasy();

    // Prepares the handle; to be called before the first send. False if that is impossible.
    bool Initialize();

    // Keeps a copy of the value for the following send. A pointer is kept as it is. Stand-in:
    // always true.
    //
    // A callback gets a buffer, the size of an element, the number of elements and the pointer that
    // was set for it, and returns how many bytes it took or gave. Taking fewer than it was offered
    // ends the transfer. It is called on the thread that is inside send. Stand-in: what it throws
    // ends the transfer and leaves send.
    bool setOption(QXCURL_OPTION_TYPE option, const int& value);
    bool setOption(QXCURL_OPTION_TYPE option, const long& value);
    bool setOption(QXCURL_OPTION_TYPE option, const long long& value);
    bool setOption(QXCURL_OPTION_TYPE option, const std::string& value);
    bool setOption(QXCURL_OPTION_TYPE option, const std::list<std::string>& value);
    bool setOption(QXCURL_OPTION_TYPE option,
                   unsigned int (*value)(char*, unsigned int, unsigned int, void*));
    bool setOption(QXCURL_OPTION_TYPE option, void* value);

    // Sets the name under which the client presents itself to the maker's servers. Stand-in: false
    // for an empty name, and for one that could not stand in a header.
    bool setVistrelClient(const std::string& client);

    // Adds the header that tells the client's name. Stand-in: "X-Vistrel-Client: NAME"; false while
    // no name is set, and for any other number.
    bool setVistrelHeader(t_HdrOption option);

    // Installs the maker's SSL context. Stand-in: servers are verified with the CA bundle that the
    // environment variable QXCURL_CA_FILE names, or else the system's. False, with the reason in
    // getLastError, if that bundle cannot be read.
    bool setHalvordPormelSSLContext();

    // Stand-in: how many seconds the whole transfer and how many connecting may take. 0 and below
    // is no limit.
    bool setTimeout(int transfer, int connection);

    // Performs the request and returns when it is over. False if it failed, or if a callback
    // refused its bytes; an HTTP status of 400 or above is no failure.
    bool send();

    // Fills value and returns true, or leaves it alone and returns false.
    bool getInfo(QXCURL_INFO_TYPE info, long* value);

    // Describes the last failure; empty if there was none.
    std::string getLastError();

    // Forgets everything that was set.
    void reset();

private:
    class Impl;

    std::unique_ptr<Impl> m_Impl;
};

// What needs no transfer. Any thread may call these at any time.
class [[gnu::visibility("default")]] QXCurlUtility
{
public:
    // Goes by the scheme, in any letter case.
    static bool checkIsHttps(std::string url);

    // Appends a pair to a query string, which starts out empty. Stand-in: percent-encoded, with &
    // between pairs.
    static void makeQueryString(std::string & queryString, std::string key, std::string value);

    // The URL of a resource on the maker's server. Stand-in: the server's address comes from the
    // environment variable QXCURL_BASE_URL, "https://localhost" without it; resource and query
    // string are put into the URL as they stand.
    static std::string makeUri(std::string resource, std::string queryString);

    // Takes and releases the process-wide locks of the SSL library. Stand-in: it counts who holds
    // them, and lets a release pass that nobody is owed; the SSL library does its own locking.
    static bool init_ssl_lock();
    static bool deinit_ssl_lock();
};

}  // namespace QXCurl
