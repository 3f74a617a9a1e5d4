#include "limits/plan_limits_store.h"

#include "core/store.h"
#include "support/fake_provider.h"
#include "support/recording_notifier.h"
#include "support/records.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using Snapshot = PlanLimitsStore::Snapshot;
using Window = PlanLimits::Window;

// Thursday 15 January 2026, 13:00 in New York (EST5).
const Date kNow = testing::at("2026-01-15T18:00:00Z");

std::string usage(double fiveHour, const char* fiveHourReset, double weekly) {
    return std::string(R"({"five_hour":{"utilization":)") + std::to_string(fiveHour) +
           R"(,"resets_at":")" + fiveHourReset + R"("},"seven_day":{"utilization":)" +
           std::to_string(weekly) +
           R"(,"resets_at":"2026-01-16T14:00:00.000000+00:00"},"seven_day_opus":null})";
}

PlanLimits claudeReading(double used) {
    return PlanLimits{"claude", "Claude",
                      "Pro",    {Window{"five_hour", "5-hour", used, kNow.addingSeconds(3600)}},
                      kNow,     std::nullopt};
}

class PlanLimitsStoreTest : public testing::ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        endpoint("ANTHROPIC");
        copyFixture("claude/credentials_max_plan.json", ".claude/.credentials.json");
    }
    void answer(int status, const std::string& body) {
        server->on("/api/oauth/usage", testing::Reply{status, body});
    }
    void codexLog(const std::string& line) {
        write(".codex/sessions/2026/01/15/rollout-a.jsonl", line + "\n");
    }
    Snapshot refresh(Notifier* notifier = nullptr) {
        return PlanLimitsStore::shared().refresh(kNow, notifier);
    }

    testing::ScopedTimeZone m_zone{"EST5"};
};

// What a scratch run prints is pinned end to end (tally --limits); here, what it keeps.
TEST_F(PlanLimitsStoreTest, AScratchRunIsNotLiveEvenWithTrueAndForgetsCodexWithoutLimits) {
    Snapshot cached{{claudeReading(50)}, {{"claude", "An older problem."}}, {}};
    Store::save(cached, PlanLimitsStore::file());
    codexLog(
        R"({"timestamp":"2026-01-15T17:30:00Z","rate_limits":{"primary":{"used_percent":12}}})");
    testing::ScopedEnv notLive("TALLY_LIMITS_LIVE", "true");  // only "1" means live
    EXPECT_EQ(refresh().limits.size(), 2u);
    codexLog(R"({"rate_limits":null})");  // no log carries limits any more
    EXPECT_EQ(refresh().limits, cached.limits);
    EXPECT_EQ(PlanLimitsStore::shared().cached().problems, cached.problems);
    EXPECT_TRUE(server->requests().empty());
}

TEST_F(PlanLimitsStoreTest, AClaudeFailureKeepsTheLastReadingBesideItsProblem) {
    testing::ScopedEnv normalState("TALLY_SUPPORT_DIR", std::nullopt);
    answer(200, usage(41, "2026-01-15T22:05:00Z", 63));
    codexLog(
        R"({"timestamp":"2026-01-15T17:30:00Z","rate_limits":{"primary":{"used_percent":12,"window_minutes":300,"resets_at":1768514400}}})");
    Snapshot first = refresh();
    answer(503, "busy");
    Snapshot second = refresh();
    EXPECT_EQ(second.limits, first.limits);
    EXPECT_EQ(PlanLimitsStore::summary(second, kNow),
              "Claude (Max): 5-hour 41% used (resets 17:05) · Weekly 63% used (resets Fri 09:00)\n"
              "ChatGPT · Codex: 5-hour 12% used (resets 17:00)\n"
              "  From Codex's last turn on this computer\n"
              "Not refreshed: Anthropic refused the request (HTTP 503).\n");
    answer(200, usage(45, "2026-01-15T22:05:00Z", 63));
    EXPECT_TRUE(refresh().problems.empty());
    EXPECT_EQ(server->requests().size(), 3u);
}

TEST_F(PlanLimitsStoreTest, AWindowAt90IsAnnouncedOncePerPeriodAndOnlyWithPermission) {
    testing::ScopedEnv live("TALLY_LIMITS_LIVE", "1");
    testing::RecordingNotifier notifier;
    answer(200, usage(90.4, "2026-01-15T22:05:00Z", 89.6));  // 89.6 shows as 90 but is below
    EXPECT_EQ(refresh(&notifier).announced,
              std::vector<std::string>{"claude|five_hour|1768514700"});
    refresh(&notifier);
    ASSERT_EQ(notifier.posted.size(), 1u);
    EXPECT_EQ(
        notifier.posted[0],
        (Notification{"limits.claude.five_hour", "Claude: 5-hour window at 90%",
                      "It resets 17:05. Heavy work is better on another runner until then."}));
    EXPECT_EQ(notifier.authorizationRequests, 0);  // never prompts

    // The window rolled over and filled up again: a new period, announced again.
    answer(200, usage(95, "2026-01-16T03:05:00Z", 10));
    refresh(&notifier);
    EXPECT_EQ(notifier.posted.size(), 2u);

    testing::RecordingNotifier refused(false);
    answer(200, usage(99, "2026-01-16T04:05:00Z", 10));
    EXPECT_EQ(refresh(&refused).announced.size(), 3u);
    EXPECT_TRUE(refused.posted.empty());
}

TEST_F(PlanLimitsStoreTest, TheAnnouncedListKeepsTheNewest40Keys) {
    Snapshot cached{{claudeReading(95)}, {}, {}};
    for (int i = 0; i < 40; ++i)
        cached.announced.push_back("old|" + std::to_string(i));
    Store::save(cached, PlanLimitsStore::file());
    Snapshot snapshot = refresh();
    ASSERT_EQ(snapshot.announced.size(), 40u);
    EXPECT_EQ(snapshot.announced.front(), "old|1");
    EXPECT_EQ(snapshot.announced.back(), "claude|five_hour|1768503600");
}

TEST_F(PlanLimitsStoreTest, AnUnreadableSnapshotCountsAsEmpty) {
    testing::writeText(PlanLimitsStore::file(), R"({"limits":[],"problems":{}})");
    EXPECT_EQ(PlanLimitsStore::shared().cached(), Snapshot());
    EXPECT_EQ(PlanLimitsStore::summary(refresh(), kNow), "No figures yet.\n");
}

TEST(LimitNotifier, WindowsWithoutAResetTimeHaveKeyZeroAndNoResetText) {
    PlanLimits codex{"codex",      "ChatGPT · Codex",
                     std::nullopt, {Window{"secondary", "Weekly · Sonnet", 91.5, std::nullopt}},
                     kNow,         std::nullopt};
    auto crossings = PlanLimitsStore::crossings(Snapshot{{codex}, {}, {}}, 90, kNow);
    ASSERT_EQ(crossings.size(), 1u);
    EXPECT_EQ(crossings[0].key, "codex|secondary|0");
    EXPECT_EQ(
        LimitNotifier::notification(codex, codex.windows[0], kNow),
        (Notification{"limits.codex.secondary", "ChatGPT · Codex: weekly · sonnet window at 92%",
                      "Heavy work is better on another runner for now."}));
}

}  // namespace
}  // namespace usagekit
