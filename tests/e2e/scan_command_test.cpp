// `tally --scan` end to end: the real binary on a small home with a log of every tool.
#include "support/every_tool_home.h"
#include "support/run_tally.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using testing::runTally;
using testing::TallyRun;

class ScanCommand : public testing::EveryToolHome {
  protected:
    TallyRun tally(const std::string& arguments) { return runTally(arguments, root); }

    const std::string kExpected =
        "today $3.25 \u00B7 month $3.25 \u00B7 all $4.90 billed $0.00 equivalent $4.90 \u00B7 5 "
        "records\n"
        "  GitHub Copilot  $3.25  1.2M tokens\n"
        "  Claude Code  $1.16  1.2M tokens\n"
        "  OpenAI Codex CLI  $0.17  168.0k tokens\n"
        "  Gemini CLI  $0.04  21.5k tokens\n"
        "  Grok CLI  $0.28  5.5k tokens\n";
};

TEST_F(ScanCommand, AnEmptyHomePrintsZerosAndWritesAnEmptyCache) {
    TallyRun run = tally("--scan");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "today $0.00 \u00B7 month $0.00 \u00B7 all $0.00 billed $0.00 equivalent $0.00 "
              "\u00B7 0 records\n");
    EXPECT_EQ(testing::readText(support / "usage-scan.json"),
              "{\n  \"files\" : {},\n  \"version\" : 4\n}");
}

TEST_F(ScanCommand, EveryToolIsCountedToTheCentAndTheSecondRunUsesTheCache) {
    writeHomeWithEveryTool();
    TallyRun first = tally("--scan --some-launcher-flag");
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.err, "");
    EXPECT_EQ(first.out, kExpected);

    const std::string cache = testing::readText(support / "usage-scan.json");
    EXPECT_NE(cache.find("s1.jsonl"), std::string::npos);
    EXPECT_NE(cache.find("updates.jsonl"), std::string::npos);

    // Served from the cache: change a count without changing the size or the time...
    const fs::path log = home / ".claude/projects/-w-app/s1.jsonl";
    testing::setModified(log, 1'750'000'000);
    EXPECT_EQ(tally("--scan").out, first.out);
    std::string text = testing::readText(log);
    text.replace(text.find("\"output_tokens\":3000"), 20, "\"output_tokens\":9000");
    testing::writeText(log, text);
    testing::setModified(log, 1'750'000'000.3);
    EXPECT_EQ(tally("--scan").out, first.out);
    // ...and read again once the time moves by half a second.
    testing::setModified(log, 1'750'000'000.5);
    EXPECT_NE(tally("--scan").out, first.out);
}

TEST_F(ScanCommand, ABrokenCacheIsRebuiltAndAFailingSourceIsOneProblemLine) {
    writeHomeWithEveryTool();
    testing::writeText(support / "usage-scan.json", "{\"files\":");
    // An OpenCode "database" that SQLite cannot read.
    write(".local/share/opencode/opencode.db", "this is not a database");
    TallyRun run = tally("--scan");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, kExpected + "OpenCode: file is not a database\n");
}

TEST_F(ScanCommand, AFIFOWhereALogOrStateFileIsExpectedIsPassedOver) {
    writeHomeWithEveryTool();
    // Nothing ever writes to these: opening one for reading would wait forever.
    for (const fs::path& fifo :
         {home / ".claude/projects/-w-app/fifo.jsonl",
          home / ".codex/sessions/2025/06/02/rollout-2025-06-02T10-00-00-f.jsonl",
          home / ".grok/sessions/p/s/updates.jsonl", home / ".copilot/session-state/f.jsonl",
          home / ".gemini/tmp/abc/chats/session-2025-06-03-ffffffff.json",
          home / ".gemini/tmp/abc/.project_root", home / ".claude/.credentials.json",
          support / "pricing.json", support / "settings.json", support / "plan-limits.json"}) {
        fs::create_directories(fifo.parent_path());
        ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0) << fifo;
    }
    TallyRun scan = tally("--scan");  // a hang shows as the test's time-out
    EXPECT_EQ(scan.status, 0);
    EXPECT_EQ(scan.out, kExpected);
    EXPECT_EQ(tally("--limits").status, 0);
}

TEST_F(ScanCommand, ExportWritesTheWindowAsCSVOrJSON) {
    writeHomeWithEveryTool();
    TallyRun csv = tally("--export csv --days 0");
    EXPECT_EQ(csv.status, 0);
    EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), 6);
    EXPECT_TRUE(csv.out.ends_with(",gpt-5,,c,session,1,1000000,200000,0,0,0,3.250000,seat\n"))
        << csv.out;
    // The default window is the last 30 days: only the record from the future is in it.
    TallyRun json = tally("--export json");
    EXPECT_EQ(std::count(json.out.begin(), json.out.end(), '{'), 1);
    TallyRun bad = tally("--export xml");
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("csv or json"), std::string::npos);
}

TEST_F(ScanCommand, OneThreadAndAllCoresGiveTheSameBytes) {
    writeHomeWithEveryTool();
    // Many logs whose records share one timestamp: their order in the export is the order
    // in which they were gathered, which must not depend on which thread parsed what.
    for (int i = 0; i < 40; ++i)
        write(".claude/projects/-w-p" + std::to_string(i % 7) + "/s" + std::to_string(i) + ".jsonl",
              R"({"cwd":"/w/p","sessionId":"s)" + std::to_string(i) +
                  R"(","message":{"model":"claude-haiku-4-5","usage":{"input_tokens":)" +
                  std::to_string(1000 + i) +
                  R"(}},"requestId":"r","timestamp":"2025-07-01T00:00:00Z"})"
                  "\n");
    auto withThreads = [&](const char* threads, const std::string& arguments) {
        testing::ScopedEnv env("TALLY_SCAN_THREADS", threads);
        fs::remove_all(support);
        return tally(arguments).out;
    };
    const std::string one = withThreads("1", "--export csv --days 0");
    EXPECT_EQ(std::count(one.begin(), one.end(), '\n'), 46);
    EXPECT_EQ(one, withThreads("8", "--export csv --days 0"));
    EXPECT_EQ(withThreads("1", "--scan"), withThreads("3", "--scan"));
}

TEST_F(ScanCommand, HelpAndVersionAnswerOnStandardOutput) {
    TallyRun help = tally("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("tally --scan [--remote]"), std::string::npos);
    EXPECT_EQ(tally("--version").out.rfind("tally ", 0), 0u);
}

#ifdef TALLY_GUI
// Without a command `tally` starts the desktop app; over ssh that must be a sentence, not
// Qt's abort.
TEST_F(ScanCommand, WithoutACommandOrADisplayOneLineSaysWhy) {
    testing::ScopedEnv display("DISPLAY", std::nullopt), wayland("WAYLAND_DISPLAY", std::nullopt),
        platform("QT_QPA_PLATFORM", std::nullopt);
    TallyRun nothing = tally("--remote");
    EXPECT_EQ(nothing.status, 1);
    EXPECT_EQ(nothing.err, "no display to show Tally on; `tally --scan` works without one\n");
    EXPECT_EQ(nothing.out, "");
}
#endif

}  // namespace
}  // namespace usagekit
