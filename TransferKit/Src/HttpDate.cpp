#include "HttpDate.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace VORTAN_MW {
namespace KIT {

namespace {

struct Fields
{
    int year = 0;
    char month[4] = "";
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// The whole text must match. Widths are limited, so that no number overflows.
bool Matches(const char* text, Fields& fields)
{
    int end = -1;
    const auto atEnd = [&end, text] { return end >= 0 && text[end] == '\0'; };
    // NOLINTBEGIN(cert-err34-c): two digits cannot overflow, and the ranges are checked later
    if (std::sscanf(text, "%*3[A-Za-z], %2d %3[A-Za-z] %4d %2d:%2d:%2d GMT%n", &fields.day,
                    fields.month, &fields.year, &fields.hour, &fields.minute, &fields.second,
                    &end) == 6 &&
        atEnd()) {
        return true;
    }
    end = -1;
    if (std::sscanf(text, "%*9[A-Za-z], %2d-%3[A-Za-z]-%2d %2d:%2d:%2d GMT%n", &fields.day,
                    fields.month, &fields.year, &fields.hour, &fields.minute, &fields.second,
                    &end) == 6 &&
        atEnd()) {
        fields.year += fields.year < 70 ? 2000 : 1900;
        return true;
    }
    end = -1;
    return std::sscanf(text, "%*3[A-Za-z] %3[A-Za-z] %2d %2d:%2d:%2d %4d%n", fields.month,
                       &fields.day, &fields.hour, &fields.minute, &fields.second, &fields.year,
                       &end) == 6 &&
           atEnd();
    // NOLINTEND(cert-err34-c)
}

// Counted from 1; 0 if there is no such month.
int MonthOf(const char* name)
{
    constexpr const char* names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const auto* const found =
        std::find_if(std::begin(names), std::end(names),
                     [name](const char* each) { return std::strcmp(each, name) == 0; });
    return found == std::end(names) ? 0 : static_cast<int>(found - std::begin(names)) + 1;
}

// Days from 1970-01-01 to a date of the Gregorian calendar. Years begin in March here, so that the
// leap day is the last.
std::int64_t DaysSince1970(int year, int month, int day)
{
    const std::int64_t y = month <= 2 ? year - 1 : year;
    const std::int64_t monthFromMarch = (month + 9) % 12;
    const std::int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;
    constexpr std::int64_t daysBefore1970 = 719468;
    return y * 365 + y / 4 - y / 100 + y / 400 + dayOfYear - daysBefore1970;
}

}  // namespace

std::optional<std::int64_t> ParseHttpDate(const std::string& text)
{
    Fields fields;
    if (!Matches(text.c_str(), fields)) {
        return std::nullopt;
    }
    const int month = MonthOf(fields.month);
    const bool isDate = month > 0 && fields.year >= 1970 && fields.day >= 1 && fields.day <= 31;
    const bool isTime = fields.hour >= 0 && fields.hour <= 23 && fields.minute >= 0 &&
                        fields.minute <= 59 && fields.second >= 0 && fields.second <= 60;
    if (!isDate || !isTime) {
        return std::nullopt;
    }
    const std::int64_t hours = DaysSince1970(fields.year, month, fields.day) * 24 + fields.hour;
    return (hours * 60 + fields.minute) * 60 + fields.second;
}

}  // namespace KIT
}  // namespace VORTAN_MW
