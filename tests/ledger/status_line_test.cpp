#include "ledger/status_line.h"

#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::at;

class StatusLineTest : public ::testing::Test {
  protected:
    testing::ScopedTimeZone utc{"UTC0"};
    UsageLedger ledger{[] {
        Pricing p;
        p.rates["m"] = Rate(1, 1);  // a dollar per million tokens
        return p;
    }()};
    const Date now = at("2026-01-10T12:00:00Z");

    void add(const std::string& session, const std::string& iso, int64_t input,
             const std::string& model = "m") {
        ledger.records.push_back(testing::record(Provider::claudeCode, model, input, at(iso)));
        ledger.records.back().session = session;
    }
};

TEST_F(StatusLineTest, EmptyOrMalformedInputStillGivesTodaysTotal) {
    add("s1", "2026-01-10T08:00:00Z", 2'000'000);
    add("s1", "2026-01-09T23:59:59Z", 9'000'000);  // yesterday
    for (const char* text : {"", "{", "not json", "[1,2]", "{\"session_id\":7}", "\x01\xff"})
        EXPECT_EQ(StatusLine::line(ledger, StatusLine::parse(text), {}, now), "today $2.00")
            << text;
}

TEST_F(StatusLineTest, SessionCostSpansDaysAndOtherSessionsAreLeftOut) {
    add("s1", "2026-01-09T20:00:00Z", 1'000'000);
    add("s1", "2026-01-10T08:00:00Z", 500'000);
    add("s2", "2026-01-10T09:00:00Z", 3'000'000);
    const auto input = StatusLine::parse(
        R"({"session_id":"s1","model":{"id":"claude-opus-4-1","display_name":"Opus"},)"
        R"("workspace":{"current_dir":"/w/app"}})");
    EXPECT_EQ(StatusLine::line(ledger, input, {}, now),
              "Opus \u00B7 session $1.50 \u00B7 today $3.50");
}

TEST_F(StatusLineTest, TheTightestWindowOfAnyPlanIsShownWithItsReset) {
    PlanLimits claude{"claude", "Claude", std::nullopt, {}, now, std::nullopt};
    claude.windows = {{"five_hour", "5-hour", 41, at("2026-01-10T17:05:00Z")},
                      {"seven_day", "Weekly", 12, std::nullopt}};
    PlanLimits codex{"codex", "Codex", std::nullopt, {}, now, std::nullopt};
    // Past its reset: the window rolled over, so it counts as empty.
    codex.windows = {{"primary", "5-hour", 99, at("2026-01-10T11:00:00Z")}};
    EXPECT_EQ(StatusLine::line(ledger, {}, {codex, claude}, now),
              "today $0.00 \u00B7 Claude 5-hour 41% (resets 17:05)");
}

TEST_F(StatusLineTest, AModelWithoutAPriceTodayIsCountedNotASilentZero) {
    add("s1", "2026-01-10T08:00:00Z", 1'000'000, "no-such-model");
    EXPECT_EQ(StatusLine::line(ledger, {}, {}, now), "today $0.00 (1 model unpriced)");
}

}  // namespace
}  // namespace usagekit
