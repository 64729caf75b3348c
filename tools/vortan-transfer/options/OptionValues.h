#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "base/Text.h"
#include "base/UsageError.h"

namespace VORTAN_TRANSFER {

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
        const std::string least = saysLeast ? " from " + std::to_string(min) + " up" : "";
        throw UsageError(what + ": " + Quoted(text) + " is no whole number" + least);
    }
    if (error != std::errc() || number > max) {
        throw UsageError(what + ": " + Quoted(text) + " is above " + std::to_string(max));
    }
    return number;
}

// Reads a number from 0 up.
template <typename Number>
Number ParseNumber(std::string_view text, const std::string& what, Number max)
{
    return ParseNumber<Number>(text, what, 0, max);
}

// Splits "A:B". form is how the option's value is written.
inline std::pair<std::string_view, std::string_view> SplitAtColon(std::string_view text,
                                                                  const std::string& what,
                                                                  const std::string& form)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        throw UsageError(what + ": " + Quoted(text) + " is no " + form);
    }
    return {text.substr(0, colon), text.substr(colon + 1)};
}

}  // namespace VORTAN_TRANSFER
