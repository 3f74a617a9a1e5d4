// `tally report` and `tally statusline` end to end: the real binary on a small home with a
// log of every tool.
#include "support/every_tool_home.h"
#include "support/run_tally.h"

#include "core/date.h"
#include "core/json.h"
#include "core/text.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace usagekit {
namespace {

using testing::runTally;
using testing::TallyRun;

class ReportCommand : public testing::EveryToolHome {
  protected:
    TallyRun tally(const std::string& arguments, const std::string& tz = "UTC0") {
        return runTally(arguments, root, tz);
    }
    // One Claude Code request of `input` tokens of `model` at `iso`, in project `cwd`.
    std::string claudeLine(const std::string& iso, const std::string& model, int input,
                           const std::string& cwd = "/w/app") {
        static int request = 0;
        const std::string id = std::to_string(++request);
        return R"({"cwd":")" + cwd + R"(","sessionId":"s)" + id + R"(","message":{"model":")" +
               model + R"(","usage":{"input_tokens":)" + std::to_string(input) +
               R"(,"output_tokens":7}},"requestId":"q)" + id + R"(","timestamp":")" + iso + "\"}\n";
    }
    static std::vector<std::string> lines(const std::string& text) {
        std::vector<std::string> list;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            list.push_back(line);
        return list;
    }
};

TEST_F(ReportCommand, DailyJsonEqualsTheExportSummedByLocalDay) {
    writeHomeWithEveryTool();
    // Local midnight in UTC+10 is 14:00Z: these two land on different local days.
    write(".claude/projects/-w-late/late.jsonl",
          claudeLine("2025-06-05T13:59:59.900Z", "claude-opus-4-1", 123'457) +
              claudeLine("2025-06-05T14:00:00Z", "claude-haiku-4-5", 99'999));
    const std::string zone = "XYZ-10";
    const TallyRun report = tally("report daily --json", zone);
    const TallyRun exported = tally("--export json --days 0", zone);
    ASSERT_EQ(report.status, 0);
    ASSERT_EQ(exported.status, 0);

    testing::ScopedTimeZone local(zone);
    struct Sum {
        int64_t tokens = 0, calls = 0;
        double cost = 0;
    };
    std::map<std::string, Sum> byDay;
    const auto records = JSONDocument::parse(exported.out);
    ASSERT_TRUE(records);
    for (const JSON& r : records->root().array()) {
        Sum& day = byDay[Calendar::dayText(*ISO8601::parse(*r["date"].string()))];
        day.tokens += r["input"].integer() + r["output"].integer() + r["cacheRead"].integer() +
                      r["cacheWrite"].integer();
        day.calls += r["calls"].integer();
        day.cost += *r["costUSD"].number();
    }
    const auto rows = JSONDocument::parse(report.out);
    ASSERT_TRUE(rows);
    std::map<std::string, Sum> reported;
    for (const JSON& row : rows->root()["rows"].array())
        reported[std::string(*row["key"].string())] = {
            row["tokens"].integer(), row["calls"].integer(), *row["costUSD"].number()};
    ASSERT_EQ(reported.size(), byDay.size());
    EXPECT_EQ(reported.count("2025-06-05") + reported.count("2025-06-06"), 2u);
    for (const auto& [day, sum] : byDay) {
        EXPECT_EQ(reported[day].tokens, sum.tokens) << day;
        EXPECT_EQ(reported[day].calls, sum.calls) << day;
        EXPECT_NEAR(reported[day].cost, sum.cost, 1e-9) << day;
    }
}

TEST_F(ReportCommand, At80ColumnsTheLeastUsefulColumnsGoFirst) {
    writeHomeWithEveryTool();
    testing::ScopedEnv columns("COLUMNS", "80");
    const TallyRun run = tally("report");
    EXPECT_EQ(run.status, 0);
    std::string rule;
    for (int i = 0; i < 80; ++i)
        rule += "\u2500";
    EXPECT_EQ(
        run.out,
        "date        providers            output  total tokens  billed  equivalent   cost\n" +
            rule +
            "\n"
            "2025-06-01  Claude Code, Grok\u2026   23,500     1,188,500   $0.00       $1.44  "
            "$1.44\n"
            "2025-06-02  OpenAI Codex CLI      8,000       168,000   $0.00       $0.17  $0.17\n"
            "2025-06-03  Gemini CLI            1,500        21,500   $0.00       $0.04  $0.04\n"
            "2099-01-01  GitHub Copilot      200,000     1,200,000   $0.00       $3.25  $3.25\n" +
            rule +
            "\n"
            "total                           233,000     2,578,000   $0.00       $4.90  $4.90\n");
}

TEST_F(ReportCommand, At200ColumnsEveryColumnIsShownAndNumbersAlignRight) {
    writeHomeWithEveryTool();
    testing::ScopedEnv columns("COLUMNS", "200");
    const std::vector<std::string> table = lines(tally("report").out);
    ASSERT_EQ(table.size(), 8u);
    EXPECT_EQ(table[0],
              "date        providers                  input   output  cache write  cache read  "
              "total tokens  calls  billed  equivalent   cost");
    for (const std::string& line : table)
        EXPECT_EQ(Text::characterCount(line), Text::characterCount(table[0])) << line;
    EXPECT_EQ(table[7],
              "total                              1,194,000  233,000       50,000   1,101,000     "
              "2,578,000      7   $0.00       $4.90  $4.90");
}

TEST_F(ReportCommand, EveryBadValueIsOneLineOnStandardErrorAndStatus2) {
    const std::pair<const char*, const char*> cases[] = {
        {"--since 2025-02-30", "--since needs a date as YYYY-MM-DD, not \"2025-02-30\""},
        {"--until", "--until needs a date as YYYY-MM-DD"},
        {"--since 2025-06-03 --until 2025-06-01", "--since 2025-06-03 is after --until 2025-06-01"},
        {"--provider claude", "unknown provider \"claude\" (known: claude-code, grok-cli,"},
        {"--order newest", "--order needs asc or desc"},
        {"weekly --week-start friday", "--week-start needs monday or sunday"},
        {"yearly", "unknown report \"yearly\" (daily, weekly, monthly, session, project or model)"},
        {"daily model", "one report at a time, not both daily and model"},
        {"--colour", "unknown option --colour (tally report --help lists them)"},
    };
    for (const auto& [arguments, message] : cases) {
        const TallyRun run = tally(std::string("report ") + arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        EXPECT_EQ(run.out, "") << arguments;
        EXPECT_EQ(run.err.rfind(std::string("tally report: ") + message, 0), 0u) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
    const TallyRun statusline = tally("statusline --json");
    EXPECT_EQ(statusline.status, 2);
    EXPECT_EQ(statusline.err, "tally statusline: unknown argument --json (it takes none)\n");
}

TEST_F(ReportCommand, UnpricedModelsAreNamedUnderTheTable) {
    write(".claude/projects/-w-app/s.jsonl", claudeLine("2025-06-01T10:00:00Z", "house-model", 10) +
                                                 claudeLine("2025-06-01T11:00:00Z", "zeta-9", 10));
    const std::vector<std::string> table = lines(tally("report model").out);
    EXPECT_EQ(table.back(), "2 models have no price: house-model, zeta-9 \u2014 add them to " +
                                (support / "pricing.json").string());
}

TEST_F(ReportCommand, ControlCharactersInAProjectNeverReachTheTerminal) {
    write(".claude/projects/-w-x/s.jsonl",
          claudeLine("2025-06-01T10:00:00Z", "claude-haiku-4-5", 10, "/w/\\u001b[2Jwiped"));
    const TallyRun run = tally("report project");
    EXPECT_EQ(run.out.find('\x1b'), std::string::npos);
    EXPECT_NE(run.out.find("?[2Jwiped"), std::string::npos) << run.out;
}

TEST_F(ReportCommand, StatuslineGivesTodaysTotalWhateverItIsFed) {
    writeHomeWithEveryTool();
    // Copilot's record from 2099 counts as today, as it does in the summary.
    testing::writeText(root / "claude.json",
                       R"({"session_id":"s1","model":{"display_name":"Opus"},"cwd":"/w/app"})");
    testing::writeText(root / "garbage.json", "{\"session_id\":");
    EXPECT_EQ(tally("statusline < " + (root / "claude.json").string()).out,
              "Opus \u00B7 session $1.16 \u00B7 today $3.25\n");
    EXPECT_EQ(tally("statusline < " + (root / "garbage.json").string()).out, "today $3.25\n");
    const TallyRun empty = tally("statusline < /dev/null");
    EXPECT_EQ(empty.out, "today $3.25\n");
    EXPECT_EQ(empty.status, 0);
}

TEST_F(ReportCommand, EachCommandAnswersHelp) {
    EXPECT_EQ(tally("report --help").out.rfind("usage: tally report [daily|weekly|", 0), 0u);
    EXPECT_EQ(tally("statusline --help").out.rfind("usage: tally statusline", 0), 0u);
    EXPECT_NE(tally("--help").out.find("tally report"), std::string::npos);
}

}  // namespace
}  // namespace usagekit
