#include "ledger/summary.h"

#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

UsageRecord rec(const std::string& iso, const Provider& provider, const std::string& model,
                int64_t input) {
    return testing::record(provider, model, input, testing::at(iso));
}

TEST(Summary, FirstLineIsPlainAndProviderLinesAreGrouped) {
    testing::ScopedTimeZone zone("EST5EDT,M3.2.0,M11.1.0");
    UsageLedger ledger(Pricing::builtIn());
    Date now = testing::at("2026-11-20T20:00:00Z");  // 15:00 local, 20 November
    ledger.records = {
        // 10,000M input tokens of claude-sonnet-4-6 at $3: $30,000.00 of seat value, today.
        rec("2026-11-20T06:00:00Z", Provider::claudeCode, "claude-sonnet-4-6", 10'000'000'000),
        // The first instant of the month (local) counts in the month, not today.
        rec("2026-11-01T04:00:00Z", Provider::openAI, "gpt-5", 1'000'000),
        // Last month.
        rec("2026-10-31T12:00:00Z", Provider::openAI, "gpt-5", 2'000'000),
    };
    ledger.problems = {"OpenCode: database is locked", "Gemini CLI: boom"};
    EXPECT_EQ(Summary::local(ledger, now),
              "today $30000.00 \u00B7 month $30001.25 \u00B7 all $30003.75 billed $3.75 "
              "equivalent $30000.00 \u00B7 3 records\n"
              "  Claude Code  $30,000.00  10.00B tokens\n"
              "  OpenAI API  $3.75  3.0M tokens\n"
              "OpenCode: database is locked\nGemini CLI: boom\n");
    const std::string remote = Summary::remote(ledger);
    EXPECT_EQ(remote.substr(0, remote.find('\n') + 1),
              "with remote \u00B7 all $30003.75 billed $3.75 equivalent $30000.00 \u00B7 3 "
              "records\n");
}

}  // namespace
}  // namespace usagekit
