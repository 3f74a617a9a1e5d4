// `tally --scan` and `tally --export json` end to end on homes where the tools' logs lie
// where real users have them: compressed Codex rollouts, Codex's and Claude Code's homes
// moved by their variables, Copilot CLI sessions, Codex forks. Every total was counted by
// hand from the fixtures in tests/data.
#include "core/json.h"
#include "support/run_tally.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using testing::runTally;
using Lines = std::vector<std::string>;

const std::string kWeekOld = "019e3c41-5a6b-7c8d-9e0f-1a2b3c4d5e6f";
const std::string kArchived = "019e2b30-4c5d-7e6f-8a9b-0c1d2e3f4a5b";
const std::string kParent = "019e6b20-1111-7222-8333-444455556666";
const std::string kFork = "019e6c31-aaaa-7bbb-8ccc-ddddeeeeffff";

class MovedLogs : public testing::TempHome {
  protected:
    // Every exported record as "<provider> <model> <date> <project> <session> calls= in=
    // out= cr= cw= rs=", in the export's order.
    Lines exported() {
        testing::TallyRun run = runTally("--export json --days 0", root);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        Lines lines;
        JSONParser parser;
        auto records = parser.parse(run.out);
        if (!records) return {"not JSON: " + run.out};
        for (const JSON& r : records->array()) {
            auto text = [&](const char* key) { return std::string(r[key].string().value_or("-")); };
            auto count = [&](const char* key) { return std::to_string(r[key].integer()); };
            lines.push_back(text("provider") + " " + text("model") + " " + text("date") + " " +
                            text("project") + " " + text("session") + " calls=" + count("calls") +
                            " in=" + count("input") + " out=" + count("output") +
                            " cr=" + count("cacheRead") + " cw=" + count("cacheWrite") +
                            " rs=" + count("reasoning"));
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }
    std::string scan() {
        testing::TallyRun run = runTally("--scan", root);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        return run.out;
    }
    fs::path copyTo(const std::string& fixture, const fs::path& target) {
        fs::create_directories(target.parent_path());
        fs::copy_file(testing::fixture(fixture), target, fs::copy_options::overwrite_existing);
        return target;
    }
    std::string rollout(const std::string& time, const std::string& id) {
        return "rollout-" + time + "-" + id + ".jsonl";
    }
};

// Turns of the week-old session (2026-05-10, two turns, the first event repeated) and of the
// archived one (2026-05-05, two turns in two zstd frames).
const std::string kWeekOldTurns = "codex-cli gpt-5-codex 2026-05-10T09:03:21Z /w/app " + kWeekOld +
                                  " calls=2 in=5000 out=2000 cr=25000 cw=0 rs=700";
const std::string kArchivedTurns = "codex-cli gpt-5.1-codex 2026-05-05T14:05:13Z /w/site " +
                                   kArchived + " calls=2 in=4000 out=1500 cr=16000 cw=0 rs=400";

TEST_F(MovedLogs, CompressedRolloutsUnderCodexHomeCountLikePlainOnes) {
    const fs::path codexHome = root / "codex";
    testing::ScopedEnv env("CODEX_HOME", codexHome.string());
    copyTo("codex/week_old_session.jsonl.zst",
           codexHome / "sessions/2026/05/10" / (rollout("2026-05-10T08-59-58", kWeekOld) + ".zst"));
    copyTo("codex/archived_two_frames.jsonl.zst",
           codexHome / "archived_sessions" / (rollout("2026-05-05T14-00-00", kArchived) + ".zst"));
    // ~/.codex is not Codex's home now: not read.
    copyTo("codex/two_running_totals.jsonl",
           home / ".codex/sessions/2025/06/02" / rollout("2025-06-02T09-00-00", "c1"));

    EXPECT_EQ(exported(), (Lines{kWeekOldTurns, kArchivedTurns}));
    EXPECT_EQ(scan(),
              "today $0.00 \u00B7 month $0.00 \u00B7 all $0.03 billed $0.00 equivalent $0.03 "
              "\u00B7 2 records\n"
              "  OpenAI Codex CLI  $0.03  53.5k tokens\n");
    // The cache stamps compressed logs like any other: a rescan reads neither.
    EXPECT_NE(testing::readText(support / "usage-scan.json").find(".jsonl.zst"), std::string::npos);
}

TEST_F(MovedLogs, APlainCopyBesideItsCompressedRolloutCountsInstead) {
    // Resumed on 2026-05-20, Codex wrote the session out plain again and appended a turn.
    const fs::path day = home / ".codex/sessions/2026/05/10";
    copyTo("codex/week_old_session.jsonl.zst",
           day / (rollout("2026-05-10T08-59-58", kWeekOld) + ".zst"));
    copyTo("codex/resumed_session.jsonl", day / rollout("2026-05-10T08-59-58", kWeekOld));
    EXPECT_EQ(exported(), (Lines{kWeekOldTurns,
                                 "codex-cli gpt-5-codex 2026-05-20T16:40:31Z /w/app " + kWeekOld +
                                     " calls=1 in=1000 out=600 cr=19000 cw=0 rs=200"}));
}

TEST_F(MovedLogs, ACompressedRolloutCutShortKeepsTheTurnsBeforeTheCut) {
    std::string bytes = testing::readText(testing::fixture("codex/archived_two_frames.jsonl.zst"));
    bytes.resize(bytes.size() - 300);  // into the second frame
    testing::writeText(
        home / ".codex/archived_sessions" / (rollout("2026-05-05T14-00-00", kArchived) + ".zst"),
        bytes);
    EXPECT_EQ(exported(), (Lines{"codex-cli gpt-5.1-codex 2026-05-05T14:00:16Z /w/site " +
                                 kArchived + " calls=1 in=2000 out=500 cr=6000 cw=0 rs=100"}));
}

TEST_F(MovedLogs, AForkCountsOnlyItsOwnTurns) {
    // The fork replays its parent's two turns, then makes two of its own, whose running
    // totals go on from the parent's.
    const fs::path sessions = home / ".codex/sessions/2026/05";
    copyTo("codex/fork_parent.jsonl", sessions / "12" / rollout("2026-05-12T10-00-00", kParent));
    copyTo("codex/fork_child.jsonl", sessions / "13" / rollout("2026-05-13T08-00-00", kFork));
    EXPECT_EQ(exported(), (Lines{"codex-cli gpt-5-codex 2026-05-12T10:11:31Z /w/app " + kParent +
                                     " calls=2 in=18000 out=3000 cr=72000 cw=0 rs=1100",
                                 "codex-cli gpt-5-codex 2026-05-13T08:02:11Z /w/app " + kFork +
                                     " calls=2 in=6000 out=1300 cr=34000 cw=0 rs=400"}));
}

// request_split_in_two_blocks.jsonl: r1 written as two content blocks, then r2, in session
// s1 on 2025-06-01. subagent_sidechain.jsonl: two sub-agent requests on 2026-03-02.
const std::string kClaudeApp =
    "claude-code claude-sonnet-4-6 2025-06-01T11:00:00Z /w/app s1 calls=2 in=110000 out=23000 "
    "cr=1000000 cw=50000 rs=0";
const std::string kClaudeSidechain =
    "claude-code claude-haiku-4-5 2026-03-02T10:20:05Z /home/ana/src/app "
    "5e0c7a1e-3b2d-4c8f-9a61-2f7d1c0b9e44 calls=2 in=16 out=85 cr=3000 cw=3100 rs=0";

TEST_F(MovedLogs, ClaudeConfigDirListedTwiceAndThroughALinkCountsEachLogOnce) {
    const fs::path work = root / "claude-work", personal = root / "claude-personal";
    copyTo("claude/request_split_in_two_blocks.jsonl", work / "projects/-w-app/s1.jsonl");
    copyTo("claude/subagent_sidechain.jsonl", personal / "projects/-w-lib/s2.jsonl");
    fs::create_directory_symlink(work, root / "claude-link");
    // ~/.claude is not read while the variable names other homes.
    copyTo("claude/request_split_in_two_blocks.jsonl", home / ".claude/projects/-w-x/s9.jsonl");
    testing::ScopedEnv env("CLAUDE_CONFIG_DIR", work.string() + "," + personal.string() + ", " +
                                                    work.string() + "," +
                                                    (root / "claude-link").string());
    EXPECT_EQ(exported(), (Lines{kClaudeSidechain, kClaudeApp}));
}

TEST_F(MovedLogs, ClaudeProjectsUnderDotConfigAreReadBesidesDotClaude) {
    copyTo("claude/request_split_in_two_blocks.jsonl", home / ".claude/projects/-w-app/s1.jsonl");
    copyTo("claude/subagent_sidechain.jsonl", home / ".config/claude/projects/-w-lib/s2.jsonl");
    EXPECT_EQ(exported(), (Lines{kClaudeSidechain, kClaudeApp}));
}

TEST_F(MovedLogs, CopilotCLISessionResumedTwiceCountsEveryShutdown) {
    const std::string id = "7c9e6679-7425-40de-944b-e07fc1f90ae7";
    const fs::path copilotHome = root / "copilot";
    testing::ScopedEnv env("COPILOT_HOME", copilotHome.string());
    copyTo("copilot/cli_session_resumed_twice.jsonl",
           copilotHome / "session-state" / id / "events.jsonl");
    // Input is net of the cache reads and writes it includes; the two shutdowns of May 15
    // fold into one record.
    EXPECT_EQ(exported(),
              (Lines{"github-copilot claude-sonnet-4.5 2026-05-14T08:45:10Z /home/ana/src/shop " +
                         id + " calls=6 in=18000 out=4200 cr=150000 cw=12000 rs=0",
                     "github-copilot claude-sonnet-4.5 2026-05-15T17:10:00Z /home/ana/src/shop " +
                         id + " calls=6 in=13000 out=3200 cr=106000 cw=7000 rs=0",
                     "github-copilot gpt-5-mini 2026-05-14T08:45:10Z /home/ana/src/shop " + id +
                         " calls=2 in=5000 out=300 cr=4000 cw=0 rs=120"}));
}

}  // namespace
}  // namespace usagekit
