#include "limits/plan_limits_store.h"

#include "core/store.h"
#include "support/fake_provider.h"
#include "support/recording_notifier.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using Snapshot = PlanLimitsStore::Snapshot;
using Window = PlanLimits::Window;
using testing::RecordingNotifier;

Date at(const char* iso) {
    return *ISO8601::parse(iso);
}

// Thursday 15 January 2026, 13:00 in New York (EST5).
const Date kNow = at("2026-01-15T18:00:00Z");

std::string usage(double fiveHour, const char* fiveHourReset, double weekly) {
    return std::string(R"({"five_hour":{"utilization":)") + std::to_string(fiveHour) +
           R"(,"resets_at":")" + fiveHourReset + R"("},"seven_day":{"utilization":)" +
           std::to_string(weekly) +
           R"(,"resets_at":"2026-01-16T14:00:00.000000+00:00"},"seven_day_opus":null,"extra_usage":{"is_enabled":false}})";
}

std::string codexLine(double primary) {
    return R"({"timestamp":"2026-01-15T17:30:00.000Z","type":"event_msg","payload":{"type":"token_count","info":null,"rate_limits":{"primary":{"used_percent":)" +
           std::to_string(primary) +
           R"(,"window_minutes":300,"resets_at":1768514400},"secondary":null,"plan_type":"plus"}}})";
}

PlanLimits claudeReading(double used) {
    return PlanLimits{"claude",
                      "Claude",
                      "Pro",
                      {Window{"five_hour", "5-hour", used, at("2026-01-15T22:05:00Z")}},
                      at("2026-01-15T10:00:00Z"),
                      std::nullopt};
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
    void codexLog(const std::string& text) {
        write(".codex/sessions/2026/01/15/rollout-a.jsonl", text + "\n");
    }
    Snapshot refresh(Notifier* notifier = nullptr) {
        return PlanLimitsStore::shared().refresh(kNow, notifier);
    }

    testing::ScopedTimeZone m_zone{"EST5"};
};

TEST_F(PlanLimitsStoreTest, AScratchDirectorySendsNoRequestUnlessLiveButRereadsCodex) {
    Snapshot cached{{claudeReading(50)}, {{"claude", "an older problem"}}, {"k"}};
    Store::save(cached, PlanLimitsStore::file());
    codexLog(codexLine(12));
    testing::ScopedEnv notLive("TALLY_LIMITS_LIVE", "true");

    Snapshot snapshot = refresh();
    EXPECT_TRUE(server->requests().empty());
    ASSERT_EQ(snapshot.limits.size(), 2u);
    EXPECT_EQ(snapshot.limits[0], claudeReading(50));
    EXPECT_EQ(snapshot.limits[1].provider, "codex");
    EXPECT_EQ(snapshot.problems,
              (std::map<std::string, std::string>{{"claude", "an older problem"}}));
    EXPECT_EQ(PlanLimitsStore::shared().cached(), snapshot);

    // No log carries limits any more: the Codex reading goes.
    codexLog("{}");
    EXPECT_EQ(refresh().limits, std::vector<PlanLimits>{claudeReading(50)});
    EXPECT_TRUE(server->requests().empty());
}

TEST_F(PlanLimitsStoreTest, AClaudeFailureKeepsTheLastReadingBesideItsProblem) {
    testing::ScopedEnv normalState("TALLY_SUPPORT_DIR", std::nullopt);  // Claude is always asked
    answer(200, usage(41, "2026-01-15T22:05:00Z", 63));
    codexLog(codexLine(12));
    Snapshot first = refresh();
    ASSERT_EQ(first.limits.size(), 2u);
    EXPECT_EQ(first.limits[0].provider, "claude");
    EXPECT_TRUE(first.problems.empty());

    answer(503, "busy");
    Snapshot second = refresh();
    EXPECT_EQ(second.limits, first.limits);
    EXPECT_EQ(second.problems.at("claude"), "Anthropic refused the request (HTTP 503).");
    EXPECT_EQ(PlanLimitsStore::summary(second, kNow),
              "Claude (Max): 5-hour 41% used (resets 17:05) · Weekly 63% used (resets Fri 09:00)\n"
              "ChatGPT · Codex: 5-hour 12% used (resets 17:00)\n"
              "  From Codex's last turn on this computer\n"
              "Not refreshed: Anthropic refused the request (HTTP 503).\n");

    answer(200, usage(45, "2026-01-15T22:05:00Z", 63));
    EXPECT_TRUE(refresh().problems.empty());
    EXPECT_EQ(server->requests().size(), 3u);
}

TEST_F(PlanLimitsStoreTest, AWindowAt90IsAnnouncedOncePerPeriodWithExactTexts) {
    testing::ScopedEnv live("TALLY_LIMITS_LIVE", "1");
    RecordingNotifier notifier;
    // 89.6 is below 90 however it is shown.
    answer(200, usage(90.4, "2026-01-15T22:05:00Z", 89.6));
    Snapshot snapshot = refresh(&notifier);
    ASSERT_EQ(notifier.posted.size(), 1u);
    EXPECT_EQ(
        notifier.posted[0],
        (Notification{"limits.claude.five_hour", "Claude: 5-hour window at 90%",
                      "It resets 17:05. Heavy work is better on another runner until then."}));
    EXPECT_EQ(snapshot.announced, std::vector<std::string>{"claude|five_hour|1768514700"});
    EXPECT_EQ(notifier.authorizationRequests, 0);  // never prompts

    refresh(&notifier);
    EXPECT_EQ(notifier.posted.size(), 1u);

    // The window rolled over and filled up again: a new period, a new announcement.
    answer(200, usage(95, "2026-01-16T03:05:00Z", 10));
    refresh(&notifier);
    ASSERT_EQ(notifier.posted.size(), 2u);
    EXPECT_EQ(notifier.posted[1].body,
              "It resets 22:05. Heavy work is better on another runner until then.");
}

TEST_F(PlanLimitsStoreTest, WithoutPermissionNothingIsPostedButTheKeyIsRecorded) {
    testing::ScopedEnv live("TALLY_LIMITS_LIVE", "1");
    RecordingNotifier refused(false);
    answer(200, usage(99, "2026-01-15T22:05:00Z", 1));
    EXPECT_EQ(refresh(&refused).announced.size(), 1u);
    EXPECT_TRUE(refused.posted.empty());
    // ...and a terminal refresh, which has no notifier, records the same way.
    answer(200, usage(99, "2026-01-15T23:05:00Z", 1));
    EXPECT_EQ(refresh().announced.size(), 2u);
}

TEST_F(PlanLimitsStoreTest, TheAnnouncedListKeepsTheNewest40Keys) {
    Snapshot cached{{claudeReading(95)}, {}, {}};
    for (int i = 0; i < 40; ++i)
        cached.announced.push_back("old|" + std::to_string(i));
    Store::save(cached, PlanLimitsStore::file());
    Snapshot snapshot = refresh();
    ASSERT_EQ(snapshot.announced.size(), 40u);
    EXPECT_EQ(snapshot.announced.front(), "old|1");
    EXPECT_EQ(snapshot.announced.back(), "claude|five_hour|1768514700");
}

TEST_F(PlanLimitsStoreTest, AnUnreadableSnapshotCountsAsEmpty) {
    EXPECT_EQ(PlanLimitsStore::shared().cached(), Snapshot());
    testing::writeText(PlanLimitsStore::file(), R"({"limits":[],"problems":{}})");
    EXPECT_EQ(PlanLimitsStore::shared().cached(), Snapshot());
    EXPECT_EQ(PlanLimitsStore::summary(Snapshot(), kNow), "No figures yet.\n");
    EXPECT_EQ(refresh(), Snapshot());  // and it is replaced by the next refresh
    EXPECT_TRUE(Store::load<Snapshot>(PlanLimitsStore::file()));
}

TEST(PlanLimitCrossings, PassedResetsNeverCrossAndWindowsWithoutOneHaveKeyZero) {
    testing::ScopedTimeZone zone("EST5");
    PlanLimits codex{"codex",
                     "ChatGPT · Codex",
                     std::nullopt,
                     {Window{"primary", "5-hour", 100, kNow},
                      Window{"secondary", "Weekly · Sonnet", 91.5, std::nullopt}},
                     kNow,
                     std::nullopt};
    auto crossings = PlanLimitsStore::crossings(Snapshot{{codex}, {}, {}}, 90, kNow);
    ASSERT_EQ(crossings.size(), 1u);
    EXPECT_EQ(crossings[0].key, "codex|secondary|0");
    EXPECT_EQ(
        LimitNotifier::notification(crossings[0].plan, crossings[0].window, kNow),
        (Notification{"limits.codex.secondary", "ChatGPT · Codex: weekly · sonnet window at 92%",
                      "Heavy work is better on another runner for now."}));
}

}  // namespace
}  // namespace usagekit
