#include "Settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>

#include "Journal.h"
#include "Text.h"
#include "Write.h"

namespace VORTAN_MW {
namespace DLOG {

namespace {

constexpr std::string_view destinationVariable = "VORTAN_DLOG";
constexpr std::string_view levelVariable = "VORTAN_DLOG_LEVEL";
constexpr std::string_view noColourVariable = "NO_COLOR";
constexpr int everyPriority = 0;

std::string_view ValueOf(std::string_view variable)
{
    const char* value = secure_getenv(variable.data());
    return value ? value : std::string_view();
}

void Complain(std::string_view variable, std::string_view value, const std::string& rest)
{
    std::string line = "libdlog: ";
    line.append(variable).append("=\"").append(value).append("\" ").append(rest);
    WriteWhole(STDERR_FILENO, ReadableText(line, false) + '\n');
}

Settings OnStandardError()
{
    const bool keepColours = isatty(STDERR_FILENO) == 1 && ValueOf(noColourVariable).empty();
    return {Destination::StandardError, STDERR_FILENO, keepColours, everyPriority};
}

Settings InFile(const char* path, std::string_view value)
{
    const int descriptor = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY,
                                S_IRUSR | S_IWUSR | S_IRGRP);
    if (descriptor < 0) {
        Complain(destinationVariable, value,
                 "cannot be opened (" + std::generic_category().message(errno) +
                     "); logging to standard error");
        return OnStandardError();
    }
    return {Destination::File, descriptor, false, everyPriority};
}

Settings InJournal(std::string_view value)
{
    const std::string failure = LoadJournal();
    if (!failure.empty()) {
        Complain(destinationVariable, value,
                 "cannot be used (" + failure + "); logging to standard error");
        return OnStandardError();
    }
    return {Destination::Journal, -1, false, everyPriority};
}

Settings WithDestination(std::string_view value)
{
    constexpr std::string_view file = "file:";
    if (value == "journal") {
        return InJournal(value);
    }
    if (value == "none") {
        return {Destination::Nowhere, -1, false, everyPriority};
    }
    if (value.size() > file.size() && value.substr(0, file.size()) == file) {
        return InFile(value.data() + file.size(), value);
    }
    if (!value.empty()) {
        Complain(destinationVariable, value,
                 "is none of journal, file:PATH and none; logging to standard error");
    }
    return OnStandardError();
}

int LowestPriority(std::string_view value)
{
    constexpr std::array<std::string_view, 4> names = {"debug", "info", "warning", "error"};
    int priority = 3;  // of debug; the others follow
    for (const std::string_view name : names) {
        if (value == name) {
            return priority;
        }
        ++priority;
    }
    if (!value.empty()) {
        Complain(levelVariable, value,
                 "is none of debug, info, warning and error; logging every level");
    }
    return everyPriority;
}

}  // namespace

Settings Settings::FromEnvironment()
{
    Settings settings = WithDestination(ValueOf(destinationVariable));
    settings.lowestPriority = LowestPriority(ValueOf(levelVariable));
    return settings;
}

}  // namespace DLOG
}  // namespace VORTAN_MW
