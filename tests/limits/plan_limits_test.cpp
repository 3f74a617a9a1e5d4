#include "limits/plan_limits.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using Window = PlanLimits::Window;

// New York in winter (UTC-5). 2026-01-15T18:00Z is Thursday 13:00 there.
constexpr const char* kZone = "EST5";

Date at(const char* iso) {
    return *ISO8601::parse(iso);
}

const Date kNow = at("2026-01-15T18:00:00Z");

TEST(PlanLimitsWhen, ShowsTheTimeTodayTheWeekdayWithinSixDaysElseTheDate) {
    testing::ScopedTimeZone zone(kZone);
    // The next UTC day, but still the 15th in New York.
    EXPECT_EQ(PlanLimits::when(at("2026-01-16T04:30:00Z"), kNow), "23:30");
    EXPECT_EQ(PlanLimits::when(at("2026-01-16T14:00:00Z"), kNow), "Fri 09:00");
    EXPECT_EQ(PlanLimits::when(kNow.addingSeconds(518399), kNow), "Wed 12:59");
    EXPECT_EQ(PlanLimits::when(kNow.addingSeconds(518400), kNow), "21 Jan");
    // A reset time already behind us on another day still shows its weekday.
    EXPECT_EQ(PlanLimits::when(at("2026-01-14T20:00:00Z"), kNow), "Wed 15:00");
    EXPECT_EQ(PlanLimits::when(at("2026-09-03T12:00:00Z"), kNow), "3 Sep");
}

TEST(PlanLimitsLine, JoinsWindowsWithRoundedUseAndResetTimes) {
    testing::ScopedTimeZone zone(kZone);
    PlanLimits limits{"claude",
                      "Claude",
                      "Max",
                      {Window{"five_hour", "5-hour", 40.5, at("2026-01-15T22:05:00Z")},
                       Window{"seven_day", "Weekly", 62.6, at("2026-01-16T14:00:00Z")},
                       Window{"primary", "0-hour", -0.2, std::nullopt}},
                      kNow,
                      std::nullopt};
    EXPECT_EQ(limits.line(kNow),
              "5-hour 41% used (resets 17:05) · Weekly 63% used (resets Fri 09:00) · 0-hour 0% "
              "used");
}

TEST(PlanLimitsWindow, APassedResetReadsZeroButKeepsTheStoredFigure) {
    Window window{"five_hour", "5-hour", 95, kNow};
    EXPECT_EQ(window.usedAt(kNow), 0);
    EXPECT_EQ(window.usedAt(kNow.addingSeconds(-1)), 95);
    EXPECT_EQ(window.used, 95);
    EXPECT_EQ((Window{"k", "K", 95, std::nullopt}).usedAt(kNow), 95);
}

TEST(PlanLimitsTightest, TheEarlierWindowWinsATieAndAResetWindowCountsAsZero) {
    PlanLimits limits{"codex",
                      "ChatGPT · Codex",
                      std::nullopt,
                      {Window{"primary", "5-hour", 99, kNow},  // already reset
                       Window{"secondary", "Weekly", 30, std::nullopt},
                       Window{"third", "3-day", 30, std::nullopt}},
                      kNow,
                      std::nullopt};
    EXPECT_EQ(limits.tightest(kNow)->key, "secondary");
    limits.windows.clear();
    EXPECT_FALSE(limits.tightest(kNow));
}

TEST(PlanLimitsPercent, RoundsHalvesAwayFromZeroWithoutANegativeZero) {
    EXPECT_EQ(wholePercent(89.6), "90");
    EXPECT_EQ(wholePercent(90.5), "91");
    EXPECT_EQ(wholePercent(-0.4), "0");
    EXPECT_EQ(wholePercent(1e20), "100000000000000000000");
}

}  // namespace
}  // namespace usagekit
