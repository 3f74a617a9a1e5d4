#include "limits/spend_budget.h"

#include "core/store.h"
#include "support/recording_notifier.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::RecordingNotifier;

// New York in winter (UTC-5): local days start at 05:00Z.
constexpr const char* kZone = "EST5";

Date at(const char* iso) {
    return *ISO8601::parse(iso);
}

UsageRecord spend(const char* iso, double usd, const Provider& provider = Provider::claudeCode) {
    UsageRecord r;
    r.id = iso;
    r.date = at(iso);
    r.provider = provider;
    r.model = "claude-sonnet-4-6";
    r.kind = "session";
    r.input = 1;
    r.reportedCostUSD = usd;
    return r;
}

SpendBudget budget(SpendBudget::Period period, double cap, const char* id = "B1") {
    return SpendBudget{id, "Claude", std::nullopt, period, cap};
}

BudgetReading reading(SpendBudget::Period period, double cap, double spent) {
    return BudgetReading{budget(period, cap), spent};
}

std::vector<std::string> keys(const std::vector<BudgetCrossing>& crossings) {
    std::vector<std::string> out;
    for (const auto& c : crossings)
        out.push_back(c.key);
    return out;
}

TEST(BudgetCrossings, EachThresholdIsAnnouncedOncePerBudgetAndPeriod) {
    testing::ScopedTimeZone zone(kZone);
    Date now = at("2026-01-15T18:00:00Z");
    // 2026-01-15 00:00 in New York is 05:00Z.
    const std::string day = "B1|1768453200|";
    auto day80 = BudgetMath::crossings({reading(SpendBudget::Period::day, 20, 16)}, {}, now);
    ASSERT_EQ(keys(day80), std::vector<std::string>{day + "80"});
    EXPECT_EQ(day80[0].threshold, 80);
    EXPECT_TRUE(
        BudgetMath::crossings({reading(SpendBudget::Period::day, 20, 16)}, {day + "80"}, now)
            .empty());
    // Over the cap later the same day: only 100 is new.
    EXPECT_EQ(
        keys(BudgetMath::crossings({reading(SpendBudget::Period::day, 20, 21)}, {day + "80"}, now)),
        std::vector<std::string>{day + "100"});
    // A jump past both announces both, 80 first.
    EXPECT_EQ(keys(BudgetMath::crossings({reading(SpendBudget::Period::day, 20, 24)}, {}, now)),
              (std::vector<std::string>{day + "80", day + "100"}));
}

TEST(BudgetCrossings, ANewDayOrMonthGivesNewKeys) {
    testing::ScopedTimeZone zone(kZone);
    auto dayKey = [](const char* now) {
        return BudgetMath::crossings({reading(SpendBudget::Period::day, 20, 16)}, {}, at(now))
            .at(0)
            .key;
    };
    auto monthKey = [](const char* now) {
        return BudgetMath::crossings({reading(SpendBudget::Period::month, 100, 90)}, {}, at(now))
            .at(0)
            .key;
    };
    // 04:59Z is still the 15th's evening before in New York; 05:00Z is local midnight.
    EXPECT_EQ(dayKey("2026-01-16T04:59:59Z"), "B1|1768453200|80");
    EXPECT_EQ(dayKey("2026-01-16T05:00:00Z"), "B1|1768539600|80");
    // 2026-02-01 00:00 local is 05:00Z; the month before started on 1 January at 05:00Z.
    EXPECT_EQ(monthKey("2026-02-01T04:59:59Z"), "B1|1767243600|80");
    EXPECT_EQ(monthKey("2026-02-01T05:00:00Z"), "B1|1769922000|80");
}

TEST(BudgetCrossings, ExactlyEightyPercentCrossesAndAZeroCapNeverDoes) {
    Date now = at("2026-01-15T18:00:00Z");
    EXPECT_EQ(BudgetMath::crossings({reading(SpendBudget::Period::day, 20, 16.0)}, {}, now).size(),
              1u);
    EXPECT_TRUE(
        BudgetMath::crossings({reading(SpendBudget::Period::day, 20, 15.99)}, {}, now).empty());
    EXPECT_TRUE(
        BudgetMath::crossings({reading(SpendBudget::Period::day, 0, 500)}, {}, now).empty());
    EXPECT_TRUE(
        BudgetMath::crossings({reading(SpendBudget::Period::day, -5, 500)}, {}, now).empty());
}

TEST(BudgetReadings, CountOnlyThisPeriodAndTheBudgetsProvider) {
    testing::ScopedTimeZone zone(kZone);
    Date now = at("2026-01-15T18:00:00Z");
    std::vector<UsageRecord> rows{
        spend("2026-01-15T05:00:00Z", 1.0),  // local midnight: counts
        spend("2026-01-15T04:59:59Z", 2.0),  // the day before
        spend("2026-01-15T12:00:00Z", 4.0, Provider::codexCLI),
        spend("2026-01-01T05:00:00Z", 8.0),   // first instant of the month
        spend("2025-12-31T23:00:00Z", 16.0),  // still December locally
    };
    SpendBudget claudeDay = budget(SpendBudget::Period::day, 20, "D");
    claudeDay.providerID = "claude-code";
    auto result = BudgetMath::readings(
        {budget(SpendBudget::Period::day, 20), claudeDay, budget(SpendBudget::Period::month, 20)},
        rows, Pricing::builtIn(), now);
    ASSERT_EQ(result.size(), 3u);
    EXPECT_DOUBLE_EQ(result[0].spentUSD, 5.0);
    EXPECT_DOUBLE_EQ(result[1].spentUSD, 1.0);
    EXPECT_EQ(result[1].id(), "D");
    EXPECT_DOUBLE_EQ(result[2].spentUSD, 15.0);
}

class BudgetFiles : public testing::TempHome {};

TEST_F(BudgetFiles, AnnouncingPostsExactTextsAndRecordsEveryKey) {
    testing::ScopedTimeZone zone(kZone);
    Date now = at("2026-01-15T18:00:00Z");
    SpendBudget month{"M", "Team", "anthropic-api", SpendBudget::Period::month, 1500};
    auto crossings = BudgetMath::crossings(
        {reading(SpendBudget::Period::day, 20, 16.4), BudgetReading{month, 1523.456}}, {}, now);
    ASSERT_EQ(crossings.size(), 3u);

    RecordingNotifier notifier(false);  // the user said no: keys are recorded all the same
    Announced announced{{"older|1|80"}};
    BudgetNotifier::announce(crossings, announced, notifier);

    EXPECT_EQ(notifier.authorizationRequests, 1);
    ASSERT_EQ(notifier.posted.size(), 3u);
    EXPECT_EQ(notifier.posted[0], (Notification{"tally.budget.B1|1768453200|80", "Claude is at 80%",
                                                "$16.40 of $20.00 this day."}));
    EXPECT_EQ(notifier.posted[2], (Notification{"tally.budget.M|1767243600|100", "Team is at 100%",
                                                "$1,523.46 of $1,500.00 this month."}));
    std::vector<std::string> expected{"older|1|80", "B1|1768453200|80", "M|1767243600|80",
                                      "M|1767243600|100"};
    EXPECT_EQ(announced.keys, expected);
    EXPECT_EQ(Announced::load().keys, expected);
    EXPECT_NE(testing::readText(support / "budget-announced.json").find("\"keys\""),
              std::string::npos);
}

TEST_F(BudgetFiles, NoCrossingAsksNothingAndWritesNothing) {
    RecordingNotifier notifier;
    Announced announced;
    BudgetNotifier::announce({}, announced, notifier);
    EXPECT_EQ(notifier.authorizationRequests, 0);
    EXPECT_TRUE(notifier.posted.empty());
    EXPECT_FALSE(std::filesystem::exists(Announced::file()));
}

TEST_F(BudgetFiles, BudgetsRoundTripWithoutAnAbsentProvider) {
    SpendBudget day = SpendBudget::newBudget(SpendBudget::Period::day);
    SpendBudget month = SpendBudget::newBudget(SpendBudget::Period::month);
    EXPECT_EQ(day.label, "Today");
    EXPECT_EQ(day.capUSD, 20);
    EXPECT_EQ(month.label, "This month");
    EXPECT_EQ(month.capUSD, 200);
    EXPECT_FALSE(day.providerID);
    EXPECT_EQ(day.id.size(), 36u);
    EXPECT_NE(day.id, month.id);
    EXPECT_EQ(SpendBudget::title(SpendBudget::Period::month), "Month");

    month.providerID = "codex-cli";
    SpendBudget::save({day, month});
    EXPECT_EQ(SpendBudget::load(), (std::vector<SpendBudget>{day, month}));
    std::string text = testing::readText(support / "budgets.json");
    EXPECT_EQ(text.find("providerID"), text.rfind("providerID"));  // the month's only
    EXPECT_NE(text.find("\"period\" : \"day\""), std::string::npos);
}

TEST_F(BudgetFiles, UnreadableFilesReadAsEmptyLists) {
    testing::writeText(support / "budgets.json",
                       R"([{"id":"x","label":"y","period":"week","capUSD":1}])");
    testing::writeText(support / "budget-announced.json", R"({"keys":["a",7]})");
    EXPECT_TRUE(SpendBudget::load().empty());
    EXPECT_TRUE(Announced::load().keys.empty());
}

}  // namespace
}  // namespace usagekit
