#include "ledger/usage_export.h"

#include "core/json.h"
#include "support/records.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

UsageRecord rec(const std::string& iso, const Provider& provider, const std::string& model) {
    UsageRecord r = testing::record(provider, model, 1000, testing::at(iso));
    r.calls = 2;
    r.output = 10;
    return r;
}

TEST(Export, EmptyExportsAreAHeaderLineAndAnEmptyArray) {
    EXPECT_EQ(UsageExport::csv({}, Pricing::builtIn()),
              "date,provider,model,project,session,kind,calls,input,output,cache_read,"
              "cache_write,reasoning,cost_usd,metered\n");
    EXPECT_EQ(UsageExport::json({}, Pricing::builtIn()), "[]");
}

TEST(Export, CSVQuotesOnlyWhatNeedsIt) {
    UsageRecord r = rec("2026-09-13T08:15:02.900Z", Provider::claudeCode, "odd\"model");
    r.project = "/w/acme, inc/app";
    r.session = "line\rbreak";
    r.reportedCostUSD = 0.1234567;
    std::string csv = UsageExport::csv({r}, Pricing::builtIn());
    EXPECT_EQ(csv.substr(csv.find('\n') + 1),
              "2026-09-13T08:15:02Z,claude-code,\"odd\"\"model\",\"/w/acme, inc/app\",line\rbreak,"
              "session,2,1000,10,0,0,0,0.123457,seat\n");
}

TEST(Export, BothFormatsAreOldestFirstAndStableOnTies) {
    UsageRecord late = rec("2026-09-14T00:00:00Z", Provider::openAI, "gpt-5");
    UsageRecord first = rec("2026-09-13T00:00:00Z", Provider::openAI, "first");
    UsageRecord second = rec("2026-09-13T00:00:00Z", Provider::openAI, "second");
    std::string csv = UsageExport::csv({late, first, second}, Pricing::builtIn());
    EXPECT_LT(csv.find("first"), csv.find("second"));
    EXPECT_LT(csv.find("second"), csv.find("gpt-5"));
    EXPECT_NE(csv.find(",billed\n"), std::string::npos);

    std::string json = UsageExport::json({late, first, second}, Pricing::builtIn());
    auto doc = JSONDocument::parse(json);
    ASSERT_TRUE(doc);
    auto rows = doc->root().array();
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0]["model"].string(), "first");
    EXPECT_EQ(rows[1]["model"].string(), "second");
    EXPECT_EQ(rows[2]["provider"].string(), "openai-api");
    EXPECT_EQ(rows[2]["metered"].kind(), JSON::Kind::Bool);
    EXPECT_TRUE(rows[2]["metered"].boolean());
    EXPECT_EQ(rows[2]["costUSD"].number(), 1.25 * 1000 / 1e6 + 10 * 10 / 1e6);
    EXPECT_FALSE(rows[2]["project"].exists());
    EXPECT_EQ(rows[2]["date"].string(), "2026-09-14T00:00:00Z");
}

TEST(Export, JSONKeepsFullCostPrecisionAndSortsKeys) {
    UsageRecord r = rec("2026-09-13T00:00:00Z", Provider::claudeCode, "m");
    r.reportedCostUSD = 0.1234567;
    r.project = "/a/b";
    std::string json = UsageExport::json({r}, Pricing::builtIn());
    EXPECT_NE(json.find("\"costUSD\" : 0.1234567"), std::string::npos);
    EXPECT_NE(json.find("\"project\" : \"/a/b\""), std::string::npos);
    EXPECT_LT(json.find("\"cacheRead\""), json.find("\"project\""));
    EXPECT_LT(json.find("\"metered\" : false"), json.find("\"model\""));
}

}  // namespace
}  // namespace usagekit
