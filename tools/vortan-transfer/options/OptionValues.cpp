#include "options/OptionValues.h"

#include <algorithm>

namespace VORTAN_TRANSFER {

namespace {

bool AreDigits(std::string_view text)
{
    return text.find_first_not_of("0123456789") == std::string_view::npos;
}

// What the suffix of a size multiplies by; 0 if there is no such suffix.
std::uint64_t FactorOf(std::string_view suffix)
{
    const std::string lower = LowerCase(suffix);
    return lower.empty()  ? 1U
           : lower == "k" ? 1U << 10
           : lower == "m" ? 1U << 20
           : lower == "g" ? 1U << 30
                          : 0U;
}

}  // namespace

void RefuseTogether(const CLI::Option* one, const CLI::Option* other)
{
    if (IsSet(one) && IsSet(other)) {
        throw UsageError(one->get_name() + ": cannot be combined with " + other->get_name());
    }
}

std::chrono::milliseconds ParseSeconds(std::string_view text, const std::string& what,
                                       std::chrono::seconds max)
{
    const std::size_t point = text.find('.');
    const std::string_view whole = text.substr(0, point);
    const std::string_view fraction =
        point == std::string_view::npos ? std::string_view() : text.substr(point + 1);
    if ((whole.empty() && fraction.empty()) || !AreDigits(whole) || !AreDigits(fraction)) {
        throw UsageError(what + ": must be a number of seconds such as 0.5, not " + Quoted(text));
    }
    const std::string tooMuch =
        what + ": must be at most " + std::to_string(max.count()) + " seconds, not " + Quoted(text);
    std::uint64_t seconds = 0;
    const auto parsed = std::from_chars(whole.data(), whole.data() + whole.size(), seconds);
    const auto bound = static_cast<std::uint64_t>(max.count());
    if (parsed.ec == std::errc::result_out_of_range || seconds > bound) {
        throw UsageError(tooMuch);
    }
    std::chrono::milliseconds time = std::chrono::seconds(seconds);
    std::chrono::milliseconds digit(100);
    for (const char c : fraction.substr(0, 3)) {
        time += digit * (c - '0');
        digit /= 10;
    }
    if (fraction.find_first_not_of('0', 3) != std::string_view::npos) {
        ++time;
    }
    if (time > max) {
        throw UsageError(tooMuch);
    }
    return time;
}

std::uint64_t ParseSize(std::string_view text, const std::string& what)
{
    const std::size_t length = std::min(text.find_first_not_of("0123456789"), text.size());
    const std::uint64_t factor = FactorOf(text.substr(length));
    if (length == 0 || factor == 0) {
        throw UsageError(what + ": must be a number of bytes such as 500, 64k, 2M or 1G, not " +
                         Quoted(text));
    }
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + length, number);
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    if (parsed.ec != std::errc() || number > most / factor) {
        throw UsageError(what + ": must be at most " + std::to_string(most) + ", not " +
                         Quoted(text));
    }
    return number * factor;
}

std::pair<std::string_view, std::string_view> SplitAtColon(std::string_view text,
                                                           const std::string& what,
                                                           const std::string& form)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        throw UsageError(what + ": must be " + form + ", not " + Quoted(text));
    }
    return {text.substr(0, colon), text.substr(colon + 1)};
}

}  // namespace VORTAN_TRANSFER
