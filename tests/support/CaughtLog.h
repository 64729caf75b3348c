#pragma once

#include <functional>
#include <string>
#include <vector>

// One line that the library logged.
struct LogLine
{
    int logId;
    int priority;
    std::string tag;
    std::string format;
    std::string file;
    std::string function;
    int line;
    std::string message;

    // "D", "I", "W" or "E", the function and the message: "I m_CreateJob: Requesting ...".
    std::string Summary() const;
};

// Receives every log line of the program in the platform log's place. One per test, which then sees
// what was logged from its construction on.
class CaughtLog
{
public:
    CaughtLog();
    ~CaughtLog();
    CaughtLog(const CaughtLog&) = delete;
    CaughtLog& operator=(const CaughtLog&) = delete;

    std::vector<LogLine> Lines() const;
    // Summary() of each line, in order.
    std::vector<std::string> Summaries() const;
    // The same of the lines whose function is the given one: other threads may log meanwhile.
    std::vector<std::string> SummariesOf(const std::string& function) const;
    // The messages of the lines whose function is the given one.
    std::vector<std::string> MessagesOf(const std::string& function) const;
    std::size_t Count(const std::string& message) const;
    // Blocks until a line with this message has been logged. Otherwise false, and a failure of the
    // test that names the message and what was logged instead.
    bool WaitFor(const std::string& message) const;
    bool WaitForLine(const std::function<bool(const LogLine&)>& wanted,
                     const std::string& description = "of a certain kind") const;

    // Called for each line, on the thread that logs it, before the line is recorded.
    void OnLine(std::function<void(const LogLine&)> hook);
};
