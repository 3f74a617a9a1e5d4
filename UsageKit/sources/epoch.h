// Instants that tools write as bare numbers or that we must be able to file: a usable
// instant lies strictly after 1970-01-01T00:00:00Z and before the year 10000 (the last
// one ISO 8601 text can hold). Anything else, infinities and 1e300 included, is no date,
// so one odd line never reaches the calendar or the scan cache.
#pragma once

#include "core/date.h"

#include <optional>

namespace usagekit::Epoch {

// `seconds` since 1970 when that is a usable instant.
inline std::optional<Date> date(double seconds) {
    if (!(seconds > 0 && ISO8601::holds(Date{seconds}))) return std::nullopt;
    return Date{seconds};
}

// Some tools write milliseconds, some seconds; no log holds a date in seconds beyond
// 1e12 (the year 33658), so anything larger is read as milliseconds.
inline std::optional<Date> secondsOrMilliseconds(double value) {
    return date(value > 1e12 ? value / 1000 : value);
}

}  // namespace usagekit::Epoch
