#include "base/LibraryLog.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Password.h"

namespace VORTAN_TRANSFER {

namespace {

using PrintFunction = int (*)(int, int, const char*, const char*, ...);

constexpr int ErrorPriority = 6;
constexpr const char* KitTag = "VORTANKIT";

std::atomic<bool> s_Through = false;
std::atomic<bool> s_KeepsColours = false;
thread_local std::string s_LastError;

// URLs, and what is shown of them.
std::vector<std::pair<std::string, std::string>>& ShownUrls()
{
    static std::vector<std::pair<std::string, std::string>> urls;
    return urls;
}

PrintFunction PlatformLog()
{
    static const auto function = reinterpret_cast<PrintFunction>(dlsym(RTLD_NEXT, "__dlog_print"));
    return function;
}

std::string Formatted(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int size = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (size < 0) {
        return "";
    }
    std::string text(static_cast<std::size_t>(size) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

// Where the message begins in a line of the form "file: function(line) > message".
std::size_t BeginOfMessage(std::string_view line)
{
    constexpr std::string_view before = " > ";
    const std::size_t at = line.find(before);
    return at == std::string_view::npos ? 0 : at + before.size();
}

// Takes out the two colour sequences that the library puts around its message. Those that came into
// the message from elsewhere are none of them.
std::string WithoutColours(std::string line)
{
    constexpr std::string_view end = "\033[0m";
    const std::size_t begin = BeginOfMessage(line);
    for (const std::string_view colour : {"\033[31m", "\033[32m", "\033[33m"}) {
        if (line.compare(begin, colour.size(), colour) == 0 &&
            line.size() >= begin + colour.size() + end.size() &&
            line.compare(line.size() - end.size(), end.size(), end) == 0) {
            line.erase(line.size() - end.size());
            line.erase(begin, colour.size());
            break;
        }
    }
    return line;
}

std::string WithShownUrls(std::string line)
{
    for (const auto& [url, shown] : ShownUrls()) {
        for (std::size_t at = 0; (at = line.find(url, at)) != std::string::npos;
             at += shown.size()) {
            line.replace(at, url.size(), shown);
        }
    }
    return WithoutPasswords(line);
}

int Take(int buffer, int priority, const char* tag, const std::string& original)
{
    const std::string line = WithShownUrls(original);
    const std::string plain = WithoutColours(line);
    // The kit's own lines say less than its outcomes.
    if (priority >= ErrorPriority && std::strcmp(tag, KitTag) != 0) {
        s_LastError = plain.substr(BeginOfMessage(plain));
    }
    return s_Through && PlatformLog()
               ? PlatformLog()(buffer, priority, tag, "%s", (s_KeepsColours ? line : plain).c_str())
               : 0;
}

}  // namespace

void LetLibraryLogThrough(LogColours colours)
{
    s_KeepsColours = colours == LogColours::Kept;
    s_Through = true;
}

void ShowInLog(const std::string& url, const std::string& shown)
{
    ShownUrls().emplace_back(url, shown);
}

std::string LastLibraryError()
{
    return s_LastError;
}

}  // namespace VORTAN_TRANSFER

// The name is the platform log's: the library's calls come here instead.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[gnu::visibility("default"), gnu::format(printf, 4, 5)]] int __dlog_print(
    int buffer, int priority, const char* tag, const char* format, ...)
{
    using namespace VORTAN_TRANSFER;
    if (priority < ErrorPriority && !s_Through) {
        return 0;  // most lines: they need not be composed
    }
    va_list arguments;
    va_start(arguments, format);
    const std::string line = Formatted(format, arguments);
    va_end(arguments);
    return Take(buffer, priority, tag, line);
}
