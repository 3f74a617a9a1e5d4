// `tally --limits` end to end: the real binary in a scratch support directory, with a fake
// Anthropic on 127.0.0.1 that must not be asked.
#include "core/store.h"
#include "limits/plan_limits_store.h"
#include "support/fake_provider.h"
#include "support/run_tally.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

class LimitsCommand : public testing::ProviderTest {};

TEST_F(LimitsCommand, AScratchRunWithoutLiveReadsSendsNoRequestButRereadsCodex) {
    endpoint("ANTHROPIC");
    copyFixture("claude/credentials_max_plan.json", ".claude/.credentials.json");
    testing::TallyRun empty = testing::runTally("--limits", root);
    EXPECT_EQ(empty.out, "No figures yet.\n");

    // Far enough ahead that reset texts are dates whatever day the test runs.
    const Date reset = *ISO8601::parse("2099-03-01T09:00:00Z");
    PlanLimits claude{"claude",
                      "Claude",
                      "Max",
                      {PlanLimits::Window{"five_hour", "5-hour", 41, reset},
                       PlanLimits::Window{"seven_day", "Weekly", 63.4, std::nullopt}},
                      reset,
                      std::nullopt};
    Store::save(PlanLimitsStore::Snapshot{{claude}, {{"claude", "An old problem."}}, {}},
                PlanLimitsStore::file());
    write(
        ".codex/sessions/2099/01/01/rollout-a.jsonl",
        R"({"timestamp":"2099-01-01T09:00:00.000Z","type":"event_msg","payload":{"type":"token_count","info":null,"rate_limits":{"primary":{"used_percent":12.0,"window_minutes":300,"resets_at":4076038800},"secondary":null}}})"
        "\n");
    testing::TallyRun run = testing::runTally("--limits", root);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "Claude (Max): 5-hour 41% used (resets 1 Mar) · Weekly 63% used\n"
              "ChatGPT · Codex: 5-hour 12% used (resets 1 Mar)\n"
              "  From Codex's last turn on this computer\n"
              "Not refreshed: An old problem.\n");
    EXPECT_TRUE(server->requests().empty());
    EXPECT_EQ(PlanLimitsStore::shared().cached().limits.size(), 2u);  // the desktop's file
}

namespace fs = std::filesystem;

TEST_F(LimitsCommand, AnUndecodablePlanLimitsFileIsMovedAsideNotOverwritten) {
    const fs::path file = PlanLimitsStore::file();
    testing::writeText(file, "{\"limits\": [ torn");
    EXPECT_EQ(testing::runTally("--limits", root).status, 0);
    std::vector<std::string> aside;
    for (const auto& entry : fs::directory_iterator(file.parent_path()))
        if (entry.path().filename().string().starts_with("plan-limits.json.unreadable-"))
            aside.push_back(testing::readText(entry.path()));
    EXPECT_EQ(aside, std::vector<std::string>{"{\"limits\": [ torn"});
    EXPECT_TRUE(Store::load<PlanLimitsStore::Snapshot>(file));  // and a new one was written
}

}  // namespace
}  // namespace usagekit
