#include "ledger/usage_ledger.h"

#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::at;

UsageRecord rec(const Provider& provider, const std::string& model, int64_t input) {
    return testing::record(provider, model, input, at("2026-11-20T12:00:00Z"));
}

class Aggregations : public ::testing::Test {
  protected:
    UsageLedger ledger{[] {
        Pricing p = Pricing::builtIn();
        p.rates["three-in"] = Rate(3, 15);
        return p;
    }()};
};

TEST_F(Aggregations, SeatCostIsEquivalentMeteredIsBilledAndReasoningIsOutputButForCodex) {
    UsageRecord reasoning = rec(Provider::openAI, "gpt-5", 0), codexReasoning = reasoning;
    reasoning.reasoning = codexReasoning.reasoning = 1'000'000;
    codexReasoning.provider = Provider::codexCLI;
    Totals t =
        ledger.totals({rec(Provider::claudeCode, "three-in", 1'000'000),
                       rec(Provider::openAI, "gpt-5", 1'000'000), reasoning, codexReasoning});
    EXPECT_EQ(t.equivalentUSD, 3.0);
    EXPECT_EQ(t.billedUSD, 1.25 + 10.0);
    EXPECT_EQ(t.allUSD(), 14.25);
    EXPECT_EQ(t.tokens, 2'000'000);  // reasoning is never a token in the totals
    EXPECT_EQ(t.reasoning, 2'000'000);
    EXPECT_EQ(t.calls, 4);
    EXPECT_EQ(t.uncachedInput, 2'000'000);
}

TEST_F(Aggregations, UnpricedModelsAreSortedOnceAndReportedCostsAreNeverUnpriced) {
    UsageRecord reported = rec(Provider::openAI, "zz-unknown", 5);
    reported.reportedCostUSD = 0.0;
    Totals t = ledger.totals({rec(Provider::openAI, "b", 1), rec(Provider::openAI, "a", 1),
                              rec(Provider::openAI, "b", 1), reported});
    EXPECT_EQ(t.unpricedModels, (std::vector<std::string>{"a", "b"}));
    auto slices = ledger.byModel({reported, rec(Provider::openAI, "b", 1)});
    EXPECT_FALSE(slices[0].unpriced);
    EXPECT_TRUE(slices[1].unpriced);
}

TEST_F(Aggregations, SlicesAreKeyedAndLabelledAsTheViewsExpect) {
    UsageRecord viaRouter = rec(Provider::openRouter, "gpt-5", 10);
    UsageRecord viaOpenAI = rec(Provider::openAI, "gpt-5", 30);
    auto models = ledger.byModel({viaRouter, viaOpenAI});
    ASSERT_EQ(models.size(), 2u);
    EXPECT_EQ(models[0].id, "openai-api|gpt-5");
    EXPECT_EQ(models[1].id, "openrouter|gpt-5");
    EXPECT_EQ(models[0].label, models[1].label);

    auto providers = ledger.byProvider({viaRouter, viaOpenAI, rec(Provider::claudeCode, "x", 100)});
    EXPECT_EQ(providers[0].label, "Claude Code");
    EXPECT_FALSE(providers[0].metered);
    EXPECT_TRUE(providers[1].metered);

    UsageRecord a = rec(Provider::claudeCode, "m", 1), b = rec(Provider::claudeCode, "m", 2);
    a.project = "/one/app";
    b.project = "/two/app/";
    auto projects = ledger.byProject({a, b, rec(Provider::claudeCode, "m", 1)});
    ASSERT_EQ(projects.size(), 2u);
    EXPECT_EQ(projects[0].label, "app");
    EXPECT_EQ(projects[0].tokens, 3);
    EXPECT_EQ(projects[1].label, "\u2014");
}

TEST_F(Aggregations, SessionLabelsShortenLongIdsAndNameTheProject) {
    UsageRecord longId = rec(Provider::claudeCode, "m", 3);
    longId.session = "5e0c1234-abcd";
    longId.project = "/w/app";
    UsageRecord shortId = rec(Provider::claudeCode, "m", 2);
    shortId.session = "0123456789";
    UsageRecord none = rec(Provider::claudeCode, "m", 1);
    auto sessions = ledger.bySession({longId, shortId, none});
    EXPECT_EQ(sessions[0].label, "app \u00B7 5e0c1234\u2026");
    EXPECT_EQ(sessions[1].label, "0123456789");
    EXPECT_EQ(sessions[2].id, "");
    EXPECT_EQ(sessions[2].label, "");
}

TEST_F(Aggregations, EqualTokenSlicesKeepTheOrderTheyFirstAppeared) {
    UsageRecord subagent = rec(Provider::claudeCode, "m", 5);
    subagent.kind = "subagent";
    auto kinds = ledger.byKind({subagent, rec(Provider::claudeCode, "m", 5)});
    ASSERT_EQ(kinds.size(), 2u);
    EXPECT_EQ(kinds[0].id + " " + kinds[1].id, "subagent session");
}

TEST_F(Aggregations, CacheSavingsIgnoreReportedCostsAndUnknownModels) {
    Pricing p;
    p.rates["m"] = Rate(3, 15, 0.3, 3.75);
    UsageLedger custom(p);
    UsageRecord r = rec(Provider::claudeCode, "m", 0);
    r.cacheRead = 2'000'000;
    r.reportedCostUSD = 99;
    UsageRecord unknown = rec(Provider::claudeCode, "nope", 0);
    unknown.cacheRead = 5'000'000;
    EXPECT_DOUBLE_EQ(custom.cacheSavings({r, unknown}), 5.4);
}

TEST_F(Aggregations, DailyTotalsHaveOnePointPerDayEndingToday) {
    testing::ScopedTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    Date now = at("2026-11-20T15:00:00Z");
    UsageRecord today = rec(Provider::claudeCode, "three-in", 100);
    today.date = at("2026-11-20T00:30:00Z");  // 01:30 local
    UsageRecord threeAgo = rec(Provider::openAI, "gpt-5", 50);
    threeAgo.date = at("2026-11-16T23:30:00Z");  // 17 Nov 00:30 local
    UsageRecord old = rec(Provider::openAI, "gpt-5", 7);
    old.date = at("2026-10-01T10:00:00Z");
    auto series = ledger.dailyTotals({today, threeAgo, old}, 7, now);
    ASSERT_EQ(series.size(), 7u);
    EXPECT_EQ(ISO8601::format(series.back().day), "2026-11-19T23:00:00Z");
    EXPECT_EQ(series.back().tokens, 100);
    EXPECT_EQ(series[3].tokens, 50);
    int zeros = 0;
    for (const Point& p : series)
        zeros += p.tokens == 0;
    EXPECT_EQ(zeros, 5);
    EXPECT_EQ(series[0].provider.id, "all");
    EXPECT_EQ(ledger.dailyTotals({}, 0, now).size(), 1u);
}

TEST_F(Aggregations, DailyPointsArePerProviderAndDayWithinTheBounds) {
    testing::ScopedTimeZone utc("UTC0");
    UsageRecord a = rec(Provider::openAI, "gpt-5", 10), b = rec(Provider::claudeCode, "x", 20);
    UsageRecord c = rec(Provider::openAI, "gpt-5", 5);
    c.date = at("2026-11-22T01:00:00Z");
    auto points = ledger.daily({a, b, c, a});
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[0].provider, Provider::claudeCode);  // same day: by provider name
    EXPECT_EQ(points[1].tokens, 20);
    EXPECT_EQ(points[2].tokens, 5);
    EXPECT_EQ(ledger.daily({a, c}, at("2026-11-21T00:00:00Z")).size(), 1u);
}

TEST(Since, KeepsTheSameClockTimeDaysAgoAndEverythingForZero) {
    testing::ScopedTimeZone zone("EST5EDT,M3.2.0,M11.1.0");
    UsageLedger ledger(Pricing::builtIn());
    Date now = at("2026-11-20T20:00:00Z");  // 15:00 local
    UsageRecord edge = rec(Provider::claudeCode, "m", 1), before = edge;
    edge.date = at("2026-11-13T20:00:00Z");
    before.date = at("2026-11-13T19:59:00Z");
    ledger.records = {edge, before};
    EXPECT_EQ(ledger.since(7, now).size(), 1u);
    EXPECT_EQ(ledger.since(0, now).size(), 2u);
    EXPECT_EQ(ledger.since(-3, now).size(), 2u);
}

}  // namespace
}  // namespace usagekit
