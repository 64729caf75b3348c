#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

// Takes the place of the maker's curl wrapper library in a test program. It writes down every call
// with its values, and answers as the test says. One per test, and one thread.
class RecordingQXCurl
{
public:
    using Callback = unsigned int (*)(char*, unsigned int, unsigned int, void*);

    RecordingQXCurl();
    ~RecordingQXCurl();
    RecordingQXCurl(const RecordingQXCurl&) = delete;
    RecordingQXCurl& operator=(const RecordingQXCurl&) = delete;

    // What was called, in order. A test may add lines of its own.
    std::vector<std::string> events;

    // How a pointer or callback reads among the events.
    std::map<const void*, std::string> names;

    // The answers.
    bool acceptClient = true;
    bool acceptHeader = true;
    bool acceptSslContext = true;
    std::optional<bool> isHttps;     // goes by the scheme if it is not set
    std::optional<std::string> uri;  // "SCHEME://maker/RESOURCE?QUERY" if it is not set
    std::string scheme = "http";
    long responseCode = 200;
    std::string lastError;
    // What happens during send, and what it returns.
    std::function<bool()> onSend = [] { return true; };

    // Calls the callback that was set as the one option with the pointer set as the other, as the
    // wrapper does during send.
    unsigned int Call(int callback, int pointer, std::string& bytes);

    // The values that the handle knows.
    std::map<int, Callback> callbacks;
    std::map<int, void*> pointers;
};
