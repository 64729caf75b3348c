#include "dlog.h"

#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "Journal.h"
#include "Settings.h"
#include "Text.h"
#include "Write.h"

namespace {

using VORTAN_MW::DLOG::Destination;
using VORTAN_MW::DLOG::LineStart;
using VORTAN_MW::DLOG::ReadableText;
using VORTAN_MW::DLOG::SendToJournal;
using VORTAN_MW::DLOG::Settings;
using VORTAN_MW::DLOG::WriteWhole;

// The environment is read once, at the first line.
const Settings& TheSettings()
{
    static const Settings settings = Settings::FromEnvironment();
    return settings;
}

// A log statement leaves errno as it is: it may stand between a call and the look at its error.
class ErrnoKeeper
{
public:
    ErrnoKeeper() = default;
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ~ErrnoKeeper() { errno = m_Errno; }

private:
    int m_Errno = errno;
};

struct Free
{
    void operator()(char* text) const { std::free(text); }
};

// Null if the text cannot be made.
std::unique_ptr<char, Free> Formatted(const char* format, va_list arguments)
{
    char* text = nullptr;
    return std::unique_ptr<char, Free>(vasprintf(&text, format, arguments) < 0 ? nullptr : text);
}

// The journal knows the priorities of syslog, the urgent ones lowest.
int JournalPriority(int priority)
{
    constexpr std::array<int, 5> fromDebugOn = {LOG_DEBUG, LOG_INFO, LOG_WARNING, LOG_ERR,
                                                LOG_CRIT};
    const auto index = static_cast<std::size_t>(priority - 3);
    return index < fromDebugOn.size() ? fromDebugOn[index] : LOG_DEBUG;
}

int WriteEntry(int priority, const char* tag, const std::string& text)
{
    std::array<std::string, 4> fields = {
        "MESSAGE=" + text,
        "PRIORITY=" + std::to_string(JournalPriority(priority)),
        "SYSLOG_IDENTIFIER=" + ReadableText(tag, false),
        "TID=" + std::to_string(gettid()),
    };
    std::array<iovec, fields.size()> parts = {};
    for (std::size_t i = 0; i < fields.size(); ++i) {
        parts[i] = {fields[i].data(), fields[i].size()};
    }
    const int result = SendToJournal(parts.data(), static_cast<int>(parts.size()));
    return result < 0 ? result : static_cast<int>(text.size());
}

int WriteLine(const Settings& settings, int priority, const char* tag, const std::string& text)
{
    const std::string line = LineStart(priority, tag) + text + '\n';
    return WriteWhole(settings.descriptor, line) ? static_cast<int>(line.size()) : -errno;
}

int Print(const Settings& settings, int priority, const char* tag, const char* format,
          va_list arguments)
try {
    const std::unique_ptr<char, Free> message = Formatted(format, arguments);
    if (!message) {
        return -ENOMEM;
    }
    const std::string text = ReadableText(message.get(), settings.keepColours);
    return settings.destination == Destination::Journal ? WriteEntry(priority, tag, text)
                                                        : WriteLine(settings, priority, tag, text);
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int __dlog_print(int /*log_id*/, int prio,
                                                                   const char* tag, const char* fmt,
                                                                   ...)
{
    const ErrnoKeeper errnoKeeper;
    const Settings& settings = TheSettings();
    if (!settings.Keeps(prio)) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, fmt);
    const int result = Print(settings, prio, tag ? tag : "", fmt, arguments);
    va_end(arguments);
    return result;
}
