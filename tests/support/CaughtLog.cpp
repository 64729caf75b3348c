#include "CaughtLog.h"

#include <dlog.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <mutex>

#include "Patience.h"

namespace {

struct Record
{
    std::mutex mutex;
    std::condition_variable grown;
    bool catching = false;
    std::vector<LogLine> lines;
    std::function<void(const LogLine&)> hook;
};

// Never destroyed: threads may log until the very end.
Record& TheRecord()
{
    static Record& record = *new Record;
    return record;
}

char LevelLetter(int priority)
{
    const std::string letters = "DIWE";
    const auto index = static_cast<std::size_t>(priority - 3);
    return index < letters.size() ? letters[index] : '?';
}

}  // namespace

std::string LogLine::Summary() const
{
    return LevelLetter(priority) + (" " + function + ": " + message);
}

CaughtLog::CaughtLog()
{
    Record& record = TheRecord();
    const std::lock_guard<std::mutex> lock(record.mutex);
    record.catching = true;
    record.lines.clear();
}

CaughtLog::~CaughtLog()
{
    Record& record = TheRecord();
    const std::lock_guard<std::mutex> lock(record.mutex);
    record.catching = false;
    record.lines.clear();
    record.hook = nullptr;
}

std::vector<LogLine> CaughtLog::Lines() const
{
    Record& record = TheRecord();
    const std::lock_guard<std::mutex> lock(record.mutex);
    return record.lines;
}

std::vector<std::string> CaughtLog::Summaries() const
{
    std::vector<std::string> summaries;
    for (const LogLine& line : Lines()) {
        summaries.push_back(line.Summary());
    }
    return summaries;
}

std::vector<std::string> CaughtLog::SummariesOf(const std::string& function) const
{
    std::vector<std::string> summaries;
    for (const LogLine& line : Lines()) {
        if (line.function == function) {
            summaries.push_back(line.Summary());
        }
    }
    return summaries;
}

std::vector<std::string> CaughtLog::MessagesOf(const std::string& function) const
{
    std::vector<std::string> messages;
    for (const LogLine& line : Lines()) {
        if (line.function == function) {
            messages.push_back(line.message);
        }
    }
    return messages;
}

std::size_t CaughtLog::Count(const std::string& message) const
{
    const std::vector<LogLine> lines = Lines();
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const LogLine& line) { return line.message == message; }));
}

bool CaughtLog::WaitFor(const std::string& message) const
{
    return WaitForLine([&](const LogLine& line) { return line.message == message; },
                       '"' + message + '"');
}

bool CaughtLog::WaitForLine(const std::function<bool(const LogLine&)>& wanted,
                            const std::string& description) const
{
    Record& record = TheRecord();
    std::unique_lock<std::mutex> lock(record.mutex);
    const bool found = record.grown.wait_for(lock, Patience, [&] {
        return std::any_of(record.lines.begin(), record.lines.end(), wanted);
    });
    lock.unlock();
    if (!found) {
        ADD_FAILURE() << "gave up waiting after " << Patience.count() << " s for a log line "
                      << description
                      << "; logged until then: " << ::testing::PrintToString(Summaries());
    }
    return found;
}

void CaughtLog::OnLine(std::function<void(const LogLine&)> hook)
{
    Record& record = TheRecord();
    const std::lock_guard<std::mutex> lock(record.mutex);
    record.hook = std::move(hook);
}

// Takes the platform log's place. The library sends the file, the function, the line and the
// message as the format's arguments.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the device's.
extern "C" int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...)
{
    LogLine line{log_id, prio, tag, fmt, "", "", 0, ""};
    va_list arguments;
    va_start(arguments, fmt);
    line.file = va_arg(arguments, const char*);
    line.function = va_arg(arguments, const char*);
    line.line = va_arg(arguments, int);
    line.message = va_arg(arguments, const char*);
    va_end(arguments);

    Record& record = TheRecord();
    std::function<void(const LogLine&)> hook;
    {
        const std::lock_guard<std::mutex> lock(record.mutex);
        hook = record.hook;
    }
    if (hook) {
        hook(line);
    }
    {
        const std::lock_guard<std::mutex> lock(record.mutex);
        if (record.catching) {
            record.lines.push_back(line);
        }
    }
    record.grown.notify_all();
    return 0;
}
