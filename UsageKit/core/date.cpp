#include "core/date.h"

#include "core/checked.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>

namespace usagekit {

Date Date::now() {
    using namespace std::chrono;
    auto since = system_clock::now().time_since_epoch();
    return Date{duration<double>(since).count()};
}

int64_t truncatedCount(double value) {
    // 2^63 is exactly representable; anything at or beyond it does not fit.
    constexpr double kLimit = 9223372036854775808.0;
    if (!std::isfinite(value) || value >= kLimit || value < -kLimit) throw OutOfRange();
    return static_cast<int64_t>(value);
}

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's algorithm).
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civilFromDays(int64_t z, int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp + (mp < 10 ? 3 : -9);
    y += m <= 2;
}

bool isLeap(int64_t y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

unsigned daysInMonth(int64_t y, unsigned m) {
    static constexpr unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && isLeap(y) ? 29 : kDays[m - 1];
}

bool digits(std::string_view s, size_t at, size_t count, int& out) {
    if (at + count > s.size()) return false;
    int v = 0;
    for (size_t i = at; i < at + count; ++i) {
        char c = s[i];
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    out = v;
    return true;
}

}  // namespace

std::optional<Date> ISO8601::parse(std::string_view s) {
    int year, month, day, hour, minute, second;
    if (!digits(s, 0, 4, year) || s.size() < 19 || s[4] != '-' || !digits(s, 5, 2, month) ||
        s[7] != '-' || !digits(s, 8, 2, day) || s[10] != 'T' || !digits(s, 11, 2, hour) ||
        s[13] != ':' || !digits(s, 14, 2, minute) || s[16] != ':' || !digits(s, 17, 2, second))
        return std::nullopt;
    if (month < 1 || month > 12 || day < 1 || day > static_cast<int>(daysInMonth(year, month)) ||
        hour > 23 || minute > 59 || second > 59)
        return std::nullopt;

    size_t at = 19;
    double fraction = 0;
    if (at < s.size() && s[at] == '.') {
        // Nanoseconds are as fine as any tool writes; further digits are read and ignored.
        size_t start = ++at;
        int64_t numerator = 0, denominator = 1;
        while (at < s.size() && s[at] >= '0' && s[at] <= '9') {
            if (at - start < 9) {
                numerator = numerator * 10 + (s[at] - '0');
                denominator *= 10;
            }
            ++at;
        }
        if (at == start) return std::nullopt;
        fraction = static_cast<double>(numerator) / static_cast<double>(denominator);
    }

    int offsetSeconds = 0;
    if (at < s.size() && s[at] == 'Z') {
        ++at;
    } else if (at < s.size() && (s[at] == '+' || s[at] == '-')) {
        int oh, om;
        if (!digits(s, at + 1, 2, oh) || at + 3 >= s.size() || s[at + 3] != ':' ||
            !digits(s, at + 4, 2, om) || oh > 23 || om > 59)
            return std::nullopt;
        offsetSeconds = (oh * 3600 + om * 60) * (s[at] == '-' ? -1 : 1);
        at += 6;
    } else {
        return std::nullopt;
    }
    if (at != s.size()) return std::nullopt;

    int64_t days = daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
    double seconds =
        static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second - offsetSeconds);
    const Date date{seconds + fraction};
    if (!holds(date)) return std::nullopt;
    return date;
}

bool ISO8601::holds(Date date) {
    constexpr double kFirst = -62167219200.0;  // 0000-01-01T00:00:00Z
    constexpr double kEnd = 253402300800.0;    // 10000-01-01T00:00:00Z
    return date.secondsSince1970 >= kFirst && date.secondsSince1970 < kEnd;
}

std::string ISO8601::format(Date date) {
    double whole = std::floor(date.secondsSince1970);
    if (!std::isfinite(whole) || std::fabs(whole) > 1e15) whole = 0;
    int64_t t = static_cast<int64_t>(whole);
    int64_t days = t >= 0 ? t / 86400 : (t - 86399) / 86400;
    int64_t rest = t - days * 86400;
    int64_t y;
    unsigned m, d;
    civilFromDays(days, y, m, d);
    char buf[40];
    std::snprintf(buf, sizeof buf, "%04lld-%02u-%02uT%02d:%02d:%02dZ", static_cast<long long>(y), m,
                  d, static_cast<int>(rest / 3600), static_cast<int>(rest / 60 % 60),
                  static_cast<int>(rest % 60));
    return buf;
}

namespace {

std::tm localParts(Date date) {
    std::time_t t = static_cast<std::time_t>(std::floor(date.secondsSince1970));
    std::tm parts{};
    localtime_r(&t, &parts);
    return parts;
}

Date fromLocalParts(std::tm parts) {
    parts.tm_isdst = -1;
    return Date{static_cast<double>(std::mktime(&parts))};
}

}  // namespace

namespace {
std::atomic<unsigned> zoneGeneration{0};
}

void Calendar::timeZoneChanged() {
    tzset();
    zoneGeneration.fetch_add(1, std::memory_order_relaxed);
}

Date Calendar::startOfDay(Date date) {
    // Folding asks this for every record, and neighbours mostly share a day, so each thread
    // remembers the last day it saw (until the zone changes).
    thread_local double cachedStart = 1, cachedEnd = 0;
    thread_local unsigned cachedGeneration = 0;
    const double t = date.secondsSince1970;
    const unsigned generation = zoneGeneration.load(std::memory_order_relaxed);
    if (generation == cachedGeneration && t >= cachedStart && t < cachedEnd)
        return Date{cachedStart};
    cachedGeneration = generation;

    std::tm parts = localParts(date);
    parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
    Date start = fromLocalParts(parts);
    parts.tm_mday += 1;
    Date next = fromLocalParts(parts);
    if (next.secondsSince1970 > start.secondsSince1970 && t >= start.secondsSince1970) {
        cachedStart = start.secondsSince1970;
        cachedEnd = next.secondsSince1970;
    }
    return start;
}

Date Calendar::startOfMonth(Date date) {
    std::tm parts = localParts(date);
    parts.tm_mday = 1;
    parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
    return fromLocalParts(parts);
}

Date Calendar::addingDays(Date date, int days) {
    double whole = std::floor(date.secondsSince1970);
    std::tm parts = localParts(date);
    parts.tm_mday += days;
    return fromLocalParts(parts).addingSeconds(date.secondsSince1970 - whole);
}

Date Calendar::startOfWeek(Date date, bool sundayFirst) {
    const Date day = startOfDay(date);
    const int weekday = localParts(day).tm_wday;  // 0 is Sunday
    const int back = sundayFirst ? weekday : (weekday + 6) % 7;
    return addingDays(day, -back);
}

std::optional<Date> Calendar::parseDay(std::string_view text) {
    int year, month, day;
    if (text.size() != 10 || !digits(text, 0, 4, year) || text[4] != '-' ||
        !digits(text, 5, 2, month) || text[7] != '-' || !digits(text, 8, 2, day))
        return std::nullopt;
    if (year < 1900 || month < 1 || month > 12 || day < 1 ||
        day > static_cast<int>(daysInMonth(year, static_cast<unsigned>(month))))
        return std::nullopt;
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    return fromLocalParts(parts);
}

std::string Calendar::dayText(Date date) {
    const std::tm parts = localParts(date);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday);
    return text;
}

std::string Calendar::monthText(Date date) {
    return dayText(date).substr(0, 7);
}

std::string doubleDescription(double value) {
    char buf[64];
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
    std::string text(buf, ec == std::errc() ? end : buf);
    if (std::isfinite(value) && text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

}  // namespace usagekit
