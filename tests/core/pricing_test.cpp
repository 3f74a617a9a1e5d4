#include "core/pricing.h"

#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::record;

TEST(Pricing, BuiltInTableKeepsItsExactDoubles) {
    const Pricing& p = Pricing::builtIn();
    EXPECT_EQ(p.rates.size(), 22u);
    EXPECT_EQ(p.rates.at("claude-sonnet-4-6").cacheRead, 3.0 * 0.1);
    EXPECT_NE(p.rates.at("claude-sonnet-4-6").cacheRead, 0.3);
    EXPECT_EQ(p.rates.at("claude-sonnet-4-6").cacheWrite, 3.75);
    EXPECT_EQ(p.rates.at("gpt-5.6-luna"), Rate(0.2, 1.2, 0.02, 0.2));
    EXPECT_EQ(p.rates.at("gemini-2.5-flash").cacheRead, 0.15 * 0.1);
    EXPECT_EQ(p.rates.at("gpt-6-astra").cacheWrite, 10);
    EXPECT_EQ(p.rates.at("deepseek-reasoner").output, 2.19);
    EXPECT_LT(p.rates.at("claude-sonnet-5").input, p.rates.at("claude-sonnet-4-6").input);
    EXPECT_EQ(p.updated, "2026-09-13");
}

TEST(Pricing, LookupLowerCasesKeepsVendorPrefixesAndFallsBackToTheLongestKey) {
    const Pricing& p = Pricing::builtIn();
    EXPECT_EQ(p.rate("claude-sonnet-4-6-20260101"), p.rates.at("claude-sonnet-4-6"));
    EXPECT_EQ(p.rate("Claude-Sonnet-4-6"), p.rates.at("claude-sonnet-4-6"));
    EXPECT_EQ(p.rate("claude-opus-5-1"), p.rates.at("claude-opus-5"));
    EXPECT_EQ(p.rate("claude-fable-5-1"), p.rates.at("claude-fable-5-1"));
    EXPECT_EQ(p.rate("gpt-5.6-sol-high"), p.rates.at("gpt-5.6-sol"));
    EXPECT_EQ(p.rate("gpt-5-codex"), p.rates.at("gpt-5"));
    EXPECT_EQ(p.rate("gpt-5.5-codex"), p.rates.at("gpt-5.5"));
    EXPECT_FALSE(p.rate("gpt-5.6"));
    EXPECT_FALSE(p.rate("claude-opus-4-8[1m]"));
    EXPECT_FALSE(p.rate("gpt-5x"));
    // A vendor's prefix is priced, a regional one is not.
    EXPECT_EQ(p.rate("anthropic.claude-opus-4-7"), p.rates.at("claude-opus-4-7"));
    EXPECT_EQ(p.rate("anthropic.claude-haiku-4-5"), p.rates.at("claude-haiku-4-5"));
    EXPECT_FALSE(p.knowsRate("us.anthropic.claude-opus-4-7"));
}

TEST(Pricing, KeysWithCapitalsNeverMatch) {
    Pricing p;
    p.rates["GPT-X"] = Rate(1, 1);
    EXPECT_FALSE(p.rate("gpt-x"));
    EXPECT_FALSE(p.rate("GPT-X"));
}

TEST(Pricing, CostIsExactReasoningIsOutputExceptForCodexAndAReportedCostWins) {
    const Pricing& p = Pricing::builtIn();
    UsageRecord r = record(Provider::openAI, "gpt-5", 1'000'000);
    EXPECT_EQ(p.cost(r), 1.25);

    UsageRecord reasoning = record(Provider::openAI, "gpt-5", 0);
    reasoning.output = 100;
    reasoning.reasoning = 40;
    EXPECT_EQ(p.cost(reasoning), 10 * (140.0 / 1'000'000));
    reasoning.provider = Provider::codexCLI;
    EXPECT_EQ(p.cost(reasoning), 10 * (100.0 / 1'000'000));

    UsageRecord all = record(Provider::claudeCode, "claude-sonnet-4-6", 3);
    all.output = 120;
    all.cacheRead = 41'000;
    all.cacheWrite = 900;
    const Rate rate = p.rates.at("claude-sonnet-4-6");
    EXPECT_EQ(p.cost(all), rate.input * (3 / 1e6) + rate.output * (120 / 1e6) +
                               rate.cacheRead * (41000 / 1e6) + rate.cacheWrite * (900 / 1e6));

    EXPECT_EQ(p.cost(record(Provider::openAI, "mystery-model")), 0.0);

    // A reported cost wins, even one of zero.
    r.reportedCostUSD = 0.0;
    EXPECT_EQ(p.cost(r), 0.0);
    r.reportedCostUSD = 0.42;
    EXPECT_EQ(p.cost(r), 0.42);
}

TEST(Pricing, ListCostsSplitByMetering) {
    const Pricing& p = Pricing::builtIn();
    std::vector<UsageRecord> list{record(Provider::openAI, "gpt-5", 1'000'000),
                                  record(Provider::codexCLI, "gpt-5", 2'000'000)};
    EXPECT_EQ(cost({}, p), 0.0);
    EXPECT_EQ(cost(list, p), 3.75);
    EXPECT_EQ(cost(list, p, true), 1.25);
    EXPECT_EQ(cost(list, p, false), 2.5);
}

class PricingFile : public testing::TempHome {};

TEST_F(PricingFile, AFileRowWinsAndMissingBuiltInRowsComeBack) {
    testing::writeText(Pricing::file(), R"({"updated":"2027-01-01","source":"mine","rates":{
        "gpt-5":{"input":9,"output":9,"cacheRead":9,"cacheWrite":9},
        "house-model":{"input":1,"output":2,"cacheRead":0,"cacheWrite":0}}})");
    Pricing p = Pricing::load();
    EXPECT_EQ(p.rates.size(), 23u);
    EXPECT_EQ(p.rates.at("gpt-5"), Rate(9, 9, 9, 9));
    EXPECT_EQ(p.rates.at("claude-haiku-4-5"), Pricing::builtIn().rates.at("claude-haiku-4-5"));
    EXPECT_EQ(p.source, "mine");
}

TEST_F(PricingFile, OneBadRowDiscardsTheWholeFile) {
    testing::writeText(Pricing::file(), R"({"updated":"2027-01-01","source":"mine","rates":{
        "gpt-5":{"input":9,"output":9,"cacheRead":9,"cacheWrite":9},
        "broken":{"input":1,"output":2,"cacheRead":0}}})");
    EXPECT_EQ(Pricing::load(), Pricing::builtIn());
    testing::writeText(Pricing::file(), "{");
    EXPECT_EQ(Pricing::load(), Pricing::builtIn());
}

TEST_F(PricingFile, SaveThenLoadGivesTheSameTable) {
    Pricing p = Pricing::builtIn();
    p.rates["gpt-5"] = Rate(2, 20);
    p.save();
    EXPECT_EQ(Pricing::load(), p);
}

}  // namespace
}  // namespace usagekit
