#include "limits/plan_limits.h"

#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using Window = PlanLimits::Window;

using testing::at;

// Thursday 13:00 in New York (EST5).
const Date kNow = at("2026-01-15T18:00:00Z");

TEST(PlanLimitsWhen, ShowsTheTimeTodayTheWeekdayWithinSixDaysElseTheDate) {
    testing::ScopedTimeZone zone("EST5");
    EXPECT_EQ(PlanLimits::when(at("2026-01-16T04:30:00Z"), kNow), "23:30");  // UTC's next day
    EXPECT_EQ(PlanLimits::when(kNow.addingSeconds(518399), kNow), "Wed 12:59");
    EXPECT_EQ(PlanLimits::when(kNow.addingSeconds(518400), kNow), "21 Jan");
    EXPECT_EQ(PlanLimits::when(at("2026-01-14T20:00:00Z"), kNow), "Wed 15:00");
}

TEST(PlanLimitsLine, APassedResetReadsZeroAndTheEarlierWindowWinsATie) {
    testing::ScopedTimeZone zone("EST5");
    PlanLimits limits{"codex",
                      "ChatGPT · Codex",
                      std::nullopt,
                      {Window{"primary", "5-hour", 62.6, std::nullopt},
                       Window{"old", "Rolled", 97, kNow},  // reset at this very moment
                       Window{"secondary", "0-hour", 62.6, std::nullopt}},
                      kNow,
                      std::nullopt};
    EXPECT_EQ(limits.windows[1].used, 97);
    EXPECT_EQ(limits.tightest(kNow)->key, "primary");
    limits.windows[2].used = -0.2;
    EXPECT_EQ(limits.line(kNow),
              "5-hour 63% used · Rolled 0% used (resets 13:00) · 0-hour 0% used");
    EXPECT_FALSE(PlanLimits().tightest(kNow));
}

}  // namespace
}  // namespace usagekit
