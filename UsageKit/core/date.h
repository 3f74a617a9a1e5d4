// Instants, ISO 8601 text and the local calendar.
// A Date is seconds since 1970-01-01 00:00 UTC as a double, like the timestamps the tools
// write. Calendar arithmetic uses the process's local zone (TZ is honoured).
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace usagekit {

struct Date {
    double secondsSince1970 = 0;

    static Date now();
    Date addingSeconds(double seconds) const { return Date{secondsSince1970 + seconds}; }
    auto operator<=>(const Date&) const = default;
};

namespace ISO8601 {
// Reads YYYY-MM-DDTHH:MM:SS, an optional fraction of any length, then Z or ±HH:MM.
std::optional<Date> parse(std::string_view text);
// Whole seconds in UTC: 2026-11-15T18:20:00Z (the fraction is dropped, not rounded).
std::string format(Date date);
// Whether `date` lies within what four-digit years hold in UTC, 0000-01-01T00:00:00Z up
// to 10000-01-01T00:00:00Z: only such a date is written as text that parse() reads back.
// parse() itself gives no other, so that no odd offset (9999-12-31T23:59:59-01:00) can
// make a date that a state file would then hold and no longer read.
bool holds(Date date);
}  // namespace ISO8601

namespace Calendar {
Date startOfDay(Date date);
Date startOfMonth(Date date);
// The same wall-clock time `days` calendar days later (negative: earlier).
Date addingDays(Date date, int days);
// The start of the local week holding `date`; weeks start on Sunday when `sundayFirst`,
// else on Monday.
Date startOfWeek(Date date, bool sundayFirst);
// Local midnight of a YYYY-MM-DD date; absent for any other text or a day the month lacks.
std::optional<Date> parseDay(std::string_view text);
// The local date of `date`: YYYY-MM-DD, and its month: YYYY-MM.
std::string dayText(Date date);
std::string monthText(Date date);
// Call after changing TZ in a running process (tests do); it re-reads the zone.
void timeZoneChanged();
}  // namespace Calendar

// The shortest text that reads back to the same double, with ".0" appended to a whole
// number: 1740787200.0. Used where a double becomes part of an identifier.
std::string doubleDescription(double value);

}  // namespace usagekit
