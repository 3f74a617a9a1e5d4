#include "core/date.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

TEST(ISO8601, ReadsInternetDateTimesWithFractionsAndOffsetsOnly) {
    const std::pair<const char*, double> good[] = {
        {"2026-03-01T12:34:56Z", 1772368496.0},
        {"2026-03-01T12:34:56.789Z", 1772368496.789},
        {"2026-03-01T12:34:56.5+01:00", 1772368496.5 - 3600},
        {"2026-03-01T12:34:56-05:30", 1772368496.0 + 5.5 * 3600},
        {"2026-04-11T07:00:00.528743+00:00", 1775890800.528743},
    };
    for (const auto& [text, seconds] : good)
        EXPECT_DOUBLE_EQ(ISO8601::parse(text).value_or(Date{0}).secondsSince1970, seconds) << text;
    for (const char* bad : {"2026-03-01 12:34:56", "2026-03-01T12:34:56", "2026-02-30T00:00:00Z",
                            "2026-03-01T24:00:00Z", "2026-03-01T12:34:56.Z", "2026-03-01",
                            "2026-03-01T12:34:56Zjunk", "", "2026-13-01T00:00:00Z"})
        EXPECT_FALSE(ISO8601::parse(bad)) << bad;
}

TEST(ISO8601, WritesWholeSecondsInUTC) {
    EXPECT_EQ(ISO8601::format(Date{1763230800.999}), "2025-11-15T18:20:00Z");
    EXPECT_EQ(ISO8601::format(Date{0}), "1970-01-01T00:00:00Z");
    EXPECT_EQ(ISO8601::format(Date{-1}), "1969-12-31T23:59:59Z");
}

TEST(DoubleDescription, ShortestTextWithPointZeroForWholeNumbers) {
    EXPECT_EQ(doubleDescription(1740787200), "1740787200.0");
    EXPECT_EQ(doubleDescription(1700000000.25), "1700000000.25");
    EXPECT_EQ(doubleDescription(0.1), "0.1");
    EXPECT_EQ(doubleDescription(0.30000000000000004), "0.30000000000000004");
}

TEST(Calendar, DaysAndMonthsStartInTheLocalZone) {
    testing::ScopedTimeZone zone("EST5EDT,M3.2.0,M11.1.0");
    // 2026-03-01T03:30Z is still 2026-02-28 22:30 in New York.
    Date late = *ISO8601::parse("2026-03-01T03:30:00Z");
    EXPECT_EQ(ISO8601::format(Calendar::startOfDay(late)), "2026-02-28T05:00:00Z");
    EXPECT_EQ(ISO8601::format(Calendar::startOfMonth(late)), "2026-02-01T05:00:00Z");
    // A day that loses an hour to daylight saving still starts at local midnight.
    Date springForward = *ISO8601::parse("2026-03-08T18:00:00Z");
    EXPECT_EQ(ISO8601::format(Calendar::startOfDay(springForward)), "2026-03-08T05:00:00Z");
}

TEST(Calendar, AddingDaysKeepsTheWallClockAcrossDaylightSaving) {
    testing::ScopedTimeZone zone("EST5EDT,M3.2.0,M11.1.0");
    Date before = *ISO8601::parse("2026-03-07T20:00:00.25Z");  // 15:00 EST
    Date after = Calendar::addingDays(before, 1);              // 15:00 EDT
    EXPECT_DOUBLE_EQ(after.secondsSince1970 - before.secondsSince1970, 23 * 3600);
    EXPECT_DOUBLE_EQ(Calendar::addingDays(after, -1).secondsSince1970, before.secondsSince1970);
}

TEST(Calendar, ADayTextIsLocalMidnightAndImpossibleDaysAreRefused) {
    testing::ScopedTimeZone zone("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(ISO8601::format(*Calendar::parseDay("2026-07-01")), "2026-07-01T04:00:00Z");
    EXPECT_EQ(Calendar::dayText(*Calendar::parseDay("2028-02-29")), "2028-02-29");
    for (const char* bad : {"2026-02-29", "2026-13-01", "2026-1-01", "2026-01-01T00:00:00Z",
                            "2026/01/01", "", "20260101", "2026-00-10"})
        EXPECT_FALSE(Calendar::parseDay(bad)) << bad;
}

}  // namespace
}  // namespace usagekit
