#include "limits/spend_budget.h"

#include "support/recording_notifier.h"
#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using Period = SpendBudget::Period;

// New York in winter (UTC-5): 2026-01-15 starts at 1768453200 (05:00Z).
constexpr const char* kZone = "EST5";

using testing::at;

BudgetReading reading(Period period, double cap, double spent) {
    return BudgetReading{SpendBudget{"B1", "Claude", std::nullopt, period, cap}, spent};
}

std::vector<std::string> keys(Period period, double cap, double spent, const char* now,
                              const std::set<std::string>& announced = {}) {
    std::vector<std::string> out;
    for (const auto& c : BudgetMath::crossings({reading(period, cap, spent)}, announced, at(now)))
        out.push_back(c.key);
    return out;
}

using Keys = std::vector<std::string>;

TEST(BudgetCrossings, EachThresholdIsAnnouncedOncePerBudgetAndPeriod) {
    testing::ScopedTimeZone zone(kZone);
    const char* now = "2026-01-15T18:00:00Z";
    EXPECT_EQ(keys(Period::day, 20, 16, now), Keys{"B1|1768453200|80"});  // exactly 80%
    EXPECT_EQ(keys(Period::day, 20, 15.99, now), Keys{});
    EXPECT_EQ(keys(Period::day, 20, 21, now, {"B1|1768453200|80"}), Keys{"B1|1768453200|100"});
    EXPECT_EQ(keys(Period::day, 20, 24, now), (Keys{"B1|1768453200|80", "B1|1768453200|100"}));
    EXPECT_EQ(keys(Period::day, 0, 500, now), Keys{});
    // Local midnight, not UTC's, starts a new day; the first of the month a new month.
    EXPECT_EQ(keys(Period::day, 20, 16, "2026-01-16T04:59:59Z"), Keys{"B1|1768453200|80"});
    EXPECT_EQ(keys(Period::day, 20, 16, "2026-01-16T05:00:00Z"), Keys{"B1|1768539600|80"});
    EXPECT_EQ(keys(Period::month, 20, 16, "2026-02-01T04:59:59Z"), Keys{"B1|1767243600|80"});
    EXPECT_EQ(keys(Period::month, 20, 16, "2026-02-01T05:00:00Z"), Keys{"B1|1769922000|80"});
}

TEST(BudgetReadings, CountOnlyThisPeriodAndTheBudgetsProvider) {
    testing::ScopedTimeZone zone(kZone);
    auto row = [](const char* iso, double usd, const Provider& provider) {
        UsageRecord r = testing::record(provider, "claude-sonnet-4-6", 1, at(iso));
        r.reportedCostUSD = usd;
        return r;
    };
    std::vector<UsageRecord> rows{row("2026-01-15T05:00:00Z", 1, Provider::claudeCode),
                                  row("2026-01-15T04:59:59Z", 2, Provider::claudeCode),
                                  row("2026-01-15T12:00:00Z", 4, Provider::codexCLI),
                                  row("2026-01-01T05:00:00Z", 8, Provider::claudeCode)};
    SpendBudget claudeOnly = reading(Period::day, 20, 0).budget;
    claudeOnly.providerID = "claude-code";
    auto result = BudgetMath::readings(
        {reading(Period::day, 20, 0).budget, claudeOnly, reading(Period::month, 20, 0).budget},
        rows, Pricing::builtIn(), at("2026-01-15T18:00:00Z"));
    ASSERT_EQ(result.size(), 3u);
    EXPECT_EQ(result[0].spentUSD, 5);
    EXPECT_EQ(result[1].spentUSD, 1);
    EXPECT_EQ(result[2].spentUSD, 15);
}

class BudgetFiles : public testing::TempHome {};

TEST_F(BudgetFiles, AnnouncingPostsExactTextsAndRecordsKeysEvenWithoutPermission) {
    testing::ScopedTimeZone zone(kZone);
    SpendBudget team{"M", "Team", "anthropic-api", Period::month, 1500};
    auto crossings =
        BudgetMath::crossings({reading(Period::day, 20, 16.4), BudgetReading{team, 1523.456}}, {},
                              at("2026-01-15T18:00:00Z"));
    testing::RecordingNotifier refused(false);
    Announced announced{{"older|1|80"}};
    BudgetNotifier::announce(crossings, announced, refused);

    EXPECT_EQ(refused.authorizationRequests, 1);
    ASSERT_EQ(refused.posted.size(), 3u);
    EXPECT_EQ(refused.posted[0], (Notification{"tally.budget.B1|1768453200|80", "Claude is at 80%",
                                               "$16.40 of $20.00 this day."}));
    EXPECT_EQ(refused.posted[2], (Notification{"tally.budget.M|1767243600|100", "Team is at 100%",
                                               "$1,523.46 of $1,500.00 this month."}));
    Keys expected{"older|1|80", "B1|1768453200|80", "M|1767243600|80", "M|1767243600|100"};
    EXPECT_EQ(announced.keys, expected);
    EXPECT_EQ(Announced::load().keys, expected);

    testing::RecordingNotifier idle;
    BudgetNotifier::announce({}, announced, idle);
    EXPECT_EQ(idle.authorizationRequests, 0);
}

TEST_F(BudgetFiles, BudgetsRoundTripWithoutAnAbsentProviderAndBadFilesReadEmpty) {
    SpendBudget day = SpendBudget::newBudget(Period::day);
    SpendBudget month = SpendBudget::newBudget(Period::month);
    EXPECT_EQ(std::tie(day.label, day.capUSD, month.label, month.capUSD),
              std::make_tuple(std::string("Today"), 20.0, std::string("This month"), 200.0));
    month.providerID = "codex-cli";
    SpendBudget::save({day, month});
    EXPECT_EQ(SpendBudget::load(), (std::vector<SpendBudget>{day, month}));
    EXPECT_EQ(testing::readText(SpendBudget::file()).find("providerID"),
              testing::readText(SpendBudget::file()).rfind("providerID"));  // the month's only

    testing::writeText(SpendBudget::file(),
                       R"([{"id":"x","label":"y","period":"week","capUSD":1}])");
    EXPECT_TRUE(SpendBudget::load().empty());
}

}  // namespace
}  // namespace usagekit
