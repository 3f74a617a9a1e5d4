#include "ledger/report.h"

#include "core/json.h"
#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::at;

class ReportTest : public ::testing::Test {
  protected:
    // New York: local midnight is 05:00Z in winter and 04:00Z in summer.
    testing::ScopedTimeZone zone{"EST5EDT,M3.2.0,M11.1.0"};
    UsageLedger ledger{Pricing::builtIn()};

    void add(const Provider& provider, const std::string& model, const std::string& iso,
             int64_t input = 1000) {
        ledger.records.push_back(testing::record(provider, model, input, at(iso)));
    }
    std::vector<std::string> keys(const Report::Options& options) {
        std::vector<std::string> list;
        for (const Report::Row& row : Report::build(ledger, options).rows)
            list.push_back(row.key);
        return list;
    }
};

TEST_F(ReportTest, SinceAndUntilAreWholeLocalDays) {
    add(Provider::claudeCode, "claude-sonnet-4-6", "2026-01-10T04:59:59Z");  // 9 Jan 23:59:59
    add(Provider::claudeCode, "claude-sonnet-4-6", "2026-01-10T05:00:00Z");  // 10 Jan 00:00
    add(Provider::claudeCode, "claude-sonnet-4-6", "2026-01-12T04:59:59Z");  // 11 Jan 23:59:59
    add(Provider::claudeCode, "claude-sonnet-4-6", "2026-01-12T05:00:00Z");  // 12 Jan 00:00
    Report::Options options;
    options.since = Calendar::parseDay("2026-01-10");
    options.until = Calendar::parseDay("2026-01-11");
    const Report::Table table = Report::build(ledger, options);
    EXPECT_EQ(table.totals.calls, 2);
    EXPECT_EQ(keys(options), (std::vector<std::string>{"2026-01-10", "2026-01-11"}));
}

TEST_F(ReportTest, DaysSplitAtLocalMidnightAcrossDaylightSaving) {
    add(Provider::codexCLI, "gpt-5", "2026-03-08T04:30:00Z");  // 7 Mar 23:30 EST
    add(Provider::codexCLI, "gpt-5", "2026-03-08T05:30:00Z");  // 8 Mar 00:30 EST
    add(Provider::codexCLI, "gpt-5", "2026-03-09T03:59:00Z");  // 8 Mar 23:59 EDT
    add(Provider::codexCLI, "gpt-5", "2026-03-09T04:00:00Z");  // 9 Mar 00:00 EDT
    EXPECT_EQ(keys({}), (std::vector<std::string>{"2026-03-07", "2026-03-08", "2026-03-09"}));
    Report::Options newestFirst;
    newestFirst.ascending = false;
    EXPECT_EQ(keys(newestFirst).front(), "2026-03-09");
}

TEST_F(ReportTest, WeeksStartOnMondayOrOnSunday) {
    add(Provider::claudeCode, "claude-sonnet-4-6", "2026-03-15T15:00:00Z");  // Sunday
    add(Provider::claudeCode, "claude-sonnet-4-6", "2026-03-16T15:00:00Z");  // Monday
    Report::Options weekly;
    weekly.grouping = Report::Grouping::Weekly;
    EXPECT_EQ(keys(weekly), (std::vector<std::string>{"2026-03-09", "2026-03-16"}));
    weekly.sundayFirst = true;
    EXPECT_EQ(keys(weekly), (std::vector<std::string>{"2026-03-15"}));
    Report::Options monthly;
    monthly.grouping = Report::Grouping::Monthly;
    EXPECT_EQ(keys(monthly), (std::vector<std::string>{"2026-03"}));
}

TEST_F(ReportTest, SessionRowsAreTheLedgersSessionSlicesInTheirOrder) {
    for (const char* session : {"small", "5e0c1234-abcd", "5e0c1234-abcd", "small"}) {
        add(Provider::claudeCode, "claude-sonnet-4-6", "2026-01-10T12:00:00Z",
            std::string(session) == "small" ? 10 : 5000);
        ledger.records.back().session = session;
        ledger.records.back().project = "/w/app";
    }
    add(Provider::openRouter, "mystery-model", "2026-01-10T12:00:00Z", 7000);
    Report::Options options;
    options.grouping = Report::Grouping::Session;
    const Report::Table table = Report::build(ledger, options);
    const std::vector<Slice> slices = ledger.bySession(ledger.records);
    ASSERT_EQ(table.rows.size(), slices.size());
    for (size_t i = 0; i < slices.size(); ++i) {
        EXPECT_EQ(table.rows[i].key, slices[i].id);
        EXPECT_EQ(table.rows[i].label, slices[i].label);
        EXPECT_EQ(table.rows[i].totals.tokens, slices[i].tokens);
        EXPECT_DOUBLE_EQ(table.rows[i].totals.allUSD(), slices[i].costUSD);
    }
    EXPECT_EQ(table.totals.unpricedModels, std::vector<std::string>{"mystery-model"});
}

TEST_F(ReportTest, BreakdownKeepsOneModelThroughTwoProvidersApart) {
    add(Provider::openAI, "gpt-5", "2026-01-10T12:00:00Z", 30);
    add(Provider::openRouter, "gpt-5", "2026-01-10T13:00:00Z", 10);
    add(Provider::claudeCode, "claude-sonnet-4-6", "2026-01-10T14:00:00Z", 20);
    Report::Options options;
    options.breakdown = true;
    options.providers = {"openai-api", "openrouter"};
    const Report::Table table = Report::build(ledger, options);
    ASSERT_EQ(table.rows.size(), 1u);
    const Report::Row& day = table.rows[0];
    EXPECT_EQ(day.providers, (std::vector<std::string>{"openai-api", "openrouter"}));
    ASSERT_EQ(day.byModel.size(), 2u);
    EXPECT_EQ(day.byModel[0].key, "openai-api|gpt-5");
    EXPECT_EQ(day.byModel[1].key, "openrouter|gpt-5");
    EXPECT_EQ(day.byModel[1].totals.tokens, 10);
}

TEST_F(ReportTest, JsonRowsAndTotalsCarryEveryDocumentedKey) {
    add(Provider::claudeCode, "claude-sonnet-4-6", "2026-01-10T12:00:00Z");
    Report::Options options;
    options.breakdown = true;
    options.since = Calendar::parseDay("2026-01-01");
    const auto document =
        JSONDocument::parse(Report::json(Report::build(ledger, options), options));
    ASSERT_TRUE(document);
    auto names = [](const JSON& object) {
        std::string text;
        for (const auto& [key, value] : object.members())
            text += std::string(key) + " ";
        return text;
    };
    const std::string figures = "cacheRead cacheWrite calls costUSD equivalentUSD input ";
    EXPECT_EQ(names(document->root()), "report rows since totals ");
    EXPECT_EQ(names(document->root()["totals"]),
              "billedUSD " + figures + "output reasoning tokens unpricedModels ");
    const JSON row = document->root()["rows"][0];
    EXPECT_EQ(names(row), "billedUSD breakdown " + figures +
                              "key label lastActivity models output providers reasoning tokens "
                              "unpricedModels ");
    EXPECT_EQ(row["key"].string(), "2026-01-10");
    EXPECT_EQ(row["lastActivity"].string(), "2026-01-10T12:00:00Z");
    EXPECT_EQ(row["breakdown"][0]["key"].string(), "claude-code|claude-sonnet-4-6");
}

}  // namespace
}  // namespace usagekit
