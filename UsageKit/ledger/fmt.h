// Display formats shared by the summary, the views and notifications: money in US style
// whatever the user's locale, token counts in k/M/B, and ages.
#pragma once

#include "core/date.h"

#include <cstdint>
#include <string>

namespace usagekit::Fmt {

// "$" and the amount with en_US grouping and exactly two decimals: $1,234.50. Rounds half
// to even on the shortest decimal form of the amount, as a number formatter does.
std::string cents(double amount);
// "$" and the amount rounded to whole dollars with en_US grouping: $1,235.
std::string dollars(double amount);
// 999, 1.0k, 1000.0k, 1.0M, 1.00B: the unit is chosen on the integer before rounding.
std::string tokens(int64_t count);
// "just now" within 60 seconds either way, else "5 min. ago", "3 hr. ago", "2 days ago",
// "in 5 min." and so on, in whole units.
std::string ago(Date date, Date now = Date::now());
// A plain count with the grouping of the user's locale.
std::string n(int64_t count);
// A whole count with en_US grouping whatever the locale, for tables scripts may read:
// 1,234,567.
std::string grouped(int64_t count);

}  // namespace usagekit::Fmt
