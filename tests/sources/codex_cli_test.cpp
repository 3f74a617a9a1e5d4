#include "sources/codex_cli.h"

#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::describe;

const std::string kMain = "019f1c2a-7b3e-7d40-9a1b-2c3d4e5f6a70";
const std::string kSub = "019f1c2b-0000-7000-8000-00000000a001";
const std::string kArchived = "019e0a11-2222-7333-8444-555566667777";

// Log lines as Codex writes them, reduced to the fields a test varies. `day` is a day of
// May 2026: turns on different days fold into different records, so each turn's own
// counts stay visible.
std::string line(const std::string& time, const std::string& type, const std::string& payload) {
    return R"({"timestamp":")" + time + R"(","type":")" + type + R"(","payload":)" + payload +
           "}\n";
}
std::string noon(int day) {
    return "2026-05-0" + std::to_string(day) + "T12:00:00Z";
}
std::string meta(const std::string& payload) {
    return line("2026-05-01T00:00:00Z", "session_meta", payload);
}
std::string context(const std::string& cwd, const std::string& model = "gpt-5-codex") {
    return line("2026-05-01T00:00:01Z", "turn_context",
                R"({"cwd":")" + cwd + R"(","model":")" + model + R"("})");
}
std::string counts(int64_t input, int64_t cached, int64_t output, int64_t reasoning) {
    return R"({"input_tokens":)" + std::to_string(input) + R"(,"cached_input_tokens":)" +
           std::to_string(cached) + R"(,"output_tokens":)" + std::to_string(output) +
           R"(,"reasoning_output_tokens":)" + std::to_string(reasoning) + "}";
}
std::string totals(const std::string& time, const std::string& usage) {
    return line(time, "event_msg",
                R"({"type":"token_count","info":{"total_token_usage":)" + usage +
                    R"(,"last_token_usage":null},"rate_limits":null})");
}
std::string usageRecord(const std::string& time, const std::string& responseId,
                        const std::string& usage) {
    return line(time, "token_usage_record",
                (responseId.empty() ? "{" : R"({"response_id":")" + responseId + "\",") +
                    R"("usage":)" + usage + "}");
}

// The folded id of a record: provider|model|day start (UTC)|project|session. `day` is a
// day of May 2026, or earlier ones counted back from 1 (0 is 30 April).
std::string key(int day, const std::string& project, const std::string& session,
                const std::string& model = "gpt-5-codex") {
    const double mayFirst = ISO8601::parse("2026-05-01T00:00:00Z")->secondsSince1970;
    return "codex-cli|" + model + "|" + doubleDescription(mayFirst + (day - 1) * 86400) + "|" +
           project + "|" + session;
}

class CodexCLISourceTest : public testing::TempHome {
  protected:
    testing::ScopedTimeZone m_utc{"UTC0"};
};

TEST_F(CodexCLISourceTest, ScanReadsRolloutLogsOfSessionsThenArchive) {
    const std::string day = ".codex/sessions/2026/05/01/";
    copyFixture("codex/running_totals_with_restart.jsonl",
                day + "rollout-2026-05-01T09-00-00-" + kMain + ".jsonl");
    copyFixture("codex/subagent_thread.jsonl",
                day + "rollout-2026-05-01T09-02-00-" + kSub + ".jsonl");
    copyFixture("codex/usage_records_beside_totals.jsonl",
                ".codex/archived_sessions/rollout-2026-04-28T14-00-00-" + kArchived + ".jsonl");
    // Not a rollout: never read, whatever it holds.
    copyFixture("codex/running_totals_with_restart.jsonl", day + "notes.jsonl");

    auto files = CodexCLISource::files();
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(files[2].parent_path().filename(), "archived_sessions");

    ScanCache cache;
    // May 1 sums two turns; after the restart past midnight the totals start again, so
    // May 2 holds the first new totals as they stand plus the next difference. The
    // archived log counts its usage records alone, the repeated response id once.
    EXPECT_EQ(
        describe(CodexCLISource().scan(cache)),
        (std::vector<std::string>{
            key(1, "/w/app", kSub, "gpt-5-codex-mini") +
                " @2026-05-01T09:02:03Z subagent calls=1 in=2000 out=300 cr=6000 cw=0 rs=120",
            key(1, "/w/app", kMain) +
                " @2026-05-01T09:05:00Z session calls=2 in=10000 out=4000 cr=50000 cw=0 rs=2500",
            key(2, "/w/app", kMain) +
                " @2026-05-02T00:20:00Z session calls=2 in=5000 out=1500 cr=25000 cw=0 rs=800",
            key(-2, "/w/site", kArchived, "gpt-5.1-codex") +
                " @2026-04-28T14:01:00Z session calls=2 in=8000 out=900 cr=12000 cw=100 rs=400",
        }));
    EXPECT_EQ(cache.files.size(), 3u);
}

TEST_F(CodexCLISourceTest, DamagedLinesDropOnlyThemselves) {
    // Junk holding "token_count", totals of 1e300 (dropped, so the next event counts from
    // the last good totals), an input of "1500" as a string, a last line cut off.
    auto path = testing::fixture("codex/cut_mid_line.jsonl");
    auto records = CodexCLISource::parse(path);
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  key(3, "/w/app", "019f3333-0000-7000-8000-000000000003") +
                      " @2026-05-03T10:00:07Z session calls=2 in=1100 out=150 cr=400 cw=0 rs=0",
              }));
    EXPECT_EQ(records, CodexCLISource::parse(testing::readText(path), "ignored"));
}

TEST_F(CodexCLISourceTest, FileAndTextFormsAgree) {
    for (const char* name :
         {"codex/running_totals_with_restart.jsonl", "codex/usage_records_beside_totals.jsonl"}) {
        auto path = testing::fixture(name);
        EXPECT_EQ(CodexCLISource::parse(path),
                  CodexCLISource::parse(testing::readText(path), path.stem().string()))
            << name;
    }
}

TEST_F(CodexCLISourceTest, TotalsBecomeTurnsAndAnyCountGoingBackRestartsAllFive) {
    auto records = CodexCLISource::parse(
        context("/w") + totals(noon(1), counts(100, 20, 10, 0)) +
            totals(noon(2), counts(150, 90, 30, 0)) + totals(noon(3), counts(200, 90, 40, 3)) +
            totals(noon(4), counts(300, 100, 50, 1)) + totals(noon(5), counts(300, 100, 60, 1)),
        "f");
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  key(1, "/w", "f") + " @2026-05-01T12:00:00Z session calls=1 in=80 out=10 "
                                      "cr=20 cw=0 rs=0",
                  // More newly cached than new input: uncached input stops at 0.
                  key(2, "/w", "f") + " @2026-05-02T12:00:00Z session calls=1 in=0 out=20 "
                                      "cr=70 cw=0 rs=0",
                  key(3, "/w", "f") + " @2026-05-03T12:00:00Z session calls=1 in=50 out=10 "
                                      "cr=0 cw=0 rs=3",
                  // Only reasoning went back, yet the turn is the whole of the new totals.
                  key(4, "/w", "f") + " @2026-05-04T12:00:00Z session calls=1 in=200 out=50 "
                                      "cr=100 cw=0 rs=1",
                  // Same input, more output: a new turn, not a repeat.
                  key(5, "/w", "f") + " @2026-05-05T12:00:00Z session calls=1 in=0 out=10 "
                                      "cr=0 cw=0 rs=0",
              }));
}

TEST_F(CodexCLISourceTest, TotalsWithoutARecordStillSetTheBaseline) {
    // Before any model, and with a timestamp that does not parse, an event makes no
    // record, but the next event still counts only what came after it.
    auto records = CodexCLISource::parse(totals(noon(1), counts(100, 0, 10, 0)) + context("/w") +
                                             totals("2026-05-02 12:00", counts(300, 0, 30, 0)) +
                                             totals(noon(3), counts(350, 0, 35, 0)),
                                         "f");
    EXPECT_EQ(
        describe(records),
        (std::vector<std::string>{
            key(3, "/w", "f") + " @2026-05-03T12:00:00Z session calls=1 in=50 out=5 cr=0 cw=0 rs=0",
        }));
}

TEST_F(CodexCLISourceTest, UsageRecordKeysAreClaimedEvenWhenNoRecordIsMade) {
    // r1 arrives before any model: no record, but its key is taken. Without a response id
    // the timestamp is the key.
    auto records =
        CodexCLISource::parse(usageRecord(noon(1), "r1", counts(100, 0, 10, 0)) + context("/w") +
                                  usageRecord(noon(2), "r1", counts(200, 0, 20, 0)) +
                                  usageRecord(noon(3), "", counts(300, 100, 30, 0)) +
                                  usageRecord(noon(3), "", counts(300, 100, 30, 0)) +
                                  totals(noon(4), counts(9000, 0, 900, 0)),
                              "f");
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  key(3, "/w", "f") +
                      " @2026-05-03T12:00:00Z session calls=1 in=200 out=30 cr=100 cw=0 rs=0",
              }));
}

TEST_F(CodexCLISourceTest, EachSessionMetaDecidesTheSubThreadFlag) {
    auto records = CodexCLISource::parse(
        context("/w") + meta(R"({"id":"a","parent_thread_id":"p"})") +
            totals(noon(1), counts(10, 0, 1, 0)) +
            meta(R"({"id":"b","source":{"subagent":null}})") +
            totals(noon(2), counts(20, 0, 2, 0)) +
            meta(R"({"id":"c","source":{"subagent":{"thread_spawn":{"depth":1}}}})") +
            totals(noon(3), counts(30, 0, 3, 0)) + meta(R"({"id":"d","source":"exec"})") +
            totals(noon(4), counts(40, 0, 4, 0)),
        "f");
    EXPECT_EQ(
        describe(records),
        (std::vector<std::string>{
            key(1, "/w", "a") +
                " @2026-05-01T12:00:00Z subagent calls=1 in=10 out=1 cr=0 cw=0 rs=0",
            key(2, "/w", "b") + " @2026-05-02T12:00:00Z session calls=1 in=10 out=1 cr=0 cw=0 rs=0",
            key(3, "/w", "c") +
                " @2026-05-03T12:00:00Z subagent calls=1 in=10 out=1 cr=0 cw=0 rs=0",
            key(4, "/w", "d") + " @2026-05-04T12:00:00Z session calls=1 in=10 out=1 cr=0 cw=0 rs=0",
        }));
}

TEST_F(CodexCLISourceTest, SessionFallsBackToFileNameAndProjectToFirstTurnContext) {
    auto path = write(".codex/sessions/rollout-2026-05-01T08-00-00-nometa.jsonl",
                      context("/first") + totals(noon(1), counts(10, 0, 1, 0)) +
                          context("/second", "gpt-5") + totals(noon(2), counts(20, 0, 2, 0)) +
                          meta(R"({"session_id":"s2","cwd":"/meta"})") +
                          totals(noon(3), counts(30, 0, 3, 0)));
    const std::string stem = "rollout-2026-05-01T08-00-00-nometa";
    EXPECT_EQ(describe(CodexCLISource::parse(path)),
              (std::vector<std::string>{
                  key(1, "/first", stem) +
                      " @2026-05-01T12:00:00Z session calls=1 in=10 out=1 cr=0 cw=0 rs=0",
                  key(2, "/first", stem, "gpt-5") +
                      " @2026-05-02T12:00:00Z session calls=1 in=10 out=1 cr=0 cw=0 rs=0",
                  key(3, "/meta", "s2", "gpt-5") +
                      " @2026-05-03T12:00:00Z session calls=1 in=10 out=1 cr=0 cw=0 rs=0",
              }));
}

}  // namespace
}  // namespace usagekit
