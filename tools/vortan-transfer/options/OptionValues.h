#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "base/Text.h"
#include "base/UsageError.h"

namespace VORTAN_TRANSFER {

// Adds an option that takes a value, which is read as raw text: CLI11's conversions give brackets
// and braces a meaning of their own.
inline CLI::Option* AddValue(CLI::App& app, const std::string& name, const std::string& type)
{
    return app.add_option(name)->type_name(type);
}

// Adds a flag. "--flag=false" is refused: it would count as the flag being set.
inline CLI::Option* AddFlag(CLI::App& app, const std::string& name)
{
    return app.add_flag(name)->disable_flag_override();
}

inline bool IsSet(const CLI::Option* option)
{
    return option->count() > 0;
}

// The value of an option that was given once.
inline std::string ValueOf(const CLI::Option* option)
{
    return option->results().front();
}

// Throws UsageError if both are set.
void RefuseTogether(const CLI::Option* one, const CLI::Option* other);

// Reads all of text as a number, which must be within the bounds. what names the option.
template <typename Number>
Number ParseNumber(std::string_view text, const std::string& what, Number min, Number max)
{
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = !text.empty() && end == text.data() + text.size();
    const bool isBelow = isNumber && (error == std::errc() ? number < min : text.front() == '-');
    if (!isNumber || isBelow) {
        const bool saysLeast = isBelow || min >= 0;
        const std::string least = saysLeast ? ", " + std::to_string(min) + " or greater" : "";
        throw UsageError(what + ": must be an integer" + least + ", not " + Quoted(text));
    }
    if (error != std::errc() || number > max) {
        throw UsageError(what + ": must be at most " + std::to_string(max) + ", not " +
                         Quoted(text));
    }
    return number;
}

// Reads an integer, 0 or greater.
template <typename Number>
Number ParseNumber(std::string_view text, const std::string& what, Number max)
{
    return ParseNumber<Number>(text, what, 0, max);
}

// Reads a decimal number of seconds, such as 0.5. A fraction of a millisecond is rounded up.
std::chrono::milliseconds ParseSeconds(std::string_view text, const std::string& what,
                                       std::chrono::seconds max);

// Reads a number of bytes; the suffixes k, M and G stand for powers of 1024.
std::uint64_t ParseSize(std::string_view text, const std::string& what);

// Splits "A:B". form is how the option's value is written.
std::pair<std::string_view, std::string_view> SplitAtColon(std::string_view text,
                                                           const std::string& what,
                                                           const std::string& form);

}  // namespace VORTAN_TRANSFER
