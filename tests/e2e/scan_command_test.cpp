// `tally --scan` end to end: the real binary on a small home with a log of every tool.
#include "support/temp_home.h"

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdio>

namespace usagekit {
namespace {

namespace fs = std::filesystem;

struct Outcome {
    std::string out;
    std::string err;
    int status = -1;
};

class ScanCommand : public testing::TempHome {
  protected:
    Outcome tally(const std::string& arguments, const std::string& environment = "") {
        const fs::path errFile = root / "stderr.txt";
        const std::string command = "TZ=UTC0 " + environment + " " + std::string(TALLY_BINARY) +
                                    " " + arguments + " 2>" + errFile.string();
        Outcome run;
        FILE* pipe = popen(command.c_str(), "r");
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
            run.out.append(buffer, n);
        int status = pclose(pipe);
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.err = testing::readText(errFile);
        return run;
    }

    void writeHomeWithEveryTool() {
        // Claude Code: request r1 written as two content blocks, then r2.
        const std::string claudeHead =
            R"({"parentUuid":"p","isSidechain":false,"userType":"external","cwd":"/w/app","sessionId":"s1","version":"2.1.90","message":{"model":"claude-sonnet-4-6","id":"msg_1","type":"message","role":"assistant","content":[],"usage":)";
        write(
            ".claude/projects/-w-app/s1.jsonl",
            R"({"type":"summary","summary":"x","leafUuid":"u0"})"
            "\n" +
                claudeHead +
                R"({"input_tokens":100000,"cache_creation_input_tokens":50000,"cache_read_input_tokens":1000000,"output_tokens":20000}},"requestId":"r1","type":"assistant","uuid":"u1","timestamp":"2025-06-01T10:00:00.000Z"})"
                "\n" +
                claudeHead +
                R"({"input_tokens":100000,"cache_creation_input_tokens":50000,"cache_read_input_tokens":1000000,"output_tokens":20000}},"requestId":"r1","type":"assistant","uuid":"u2","timestamp":"2025-06-01T10:00:01.000Z"})"
                "\n" +
                claudeHead +
                R"({"input_tokens":10000,"output_tokens":3000}},"requestId":"r2","type":"assistant","uuid":"u3","timestamp":"2025-06-01T11:00:00.000Z"})"
                "\n");
        // Codex: running totals, the second event counted as its difference.
        write(
            ".codex/sessions/2025/06/02/rollout-2025-06-02T09-00-00-abc.jsonl",
            R"({"timestamp":"2025-06-02T09:00:00.000Z","type":"session_meta","payload":{"id":"c1","cwd":"/w/api","source":"cli"}})"
            "\n"
            R"({"timestamp":"2025-06-02T09:00:01.000Z","type":"turn_context","payload":{"cwd":"/w/api","model":"gpt-5-codex"}})"
            "\n"
            R"({"timestamp":"2025-06-02T09:00:05.000Z","type":"event_msg","payload":{"type":"token_count","info":{"total_token_usage":{"input_tokens":100000,"cached_input_tokens":80000,"output_tokens":5000,"reasoning_output_tokens":2000}},"rate_limits":null}})"
            "\n"
            R"({"timestamp":"2025-06-02T09:01:05.000Z","type":"event_msg","payload":{"type":"token_count","info":{"total_token_usage":{"input_tokens":160000,"cached_input_tokens":100000,"output_tokens":8000,"reasoning_output_tokens":3000}},"rate_limits":null}})"
            "\n");
        // Grok: the tool's own cost, in billionths of a dollar.
        write(
            ".grok/sessions/my%20proj/sess1/updates.jsonl",
            R"({"timestamp":1748800000,"params":{"update":{"sessionUpdate":"turn_completed","usage":{"modelUsage":{"grok-4.6":{"inputTokens":5000,"cachedReadTokens":1000,"outputTokens":500,"modelCalls":1,"costUsdTicks":280000000}}}}}})"
            "\n");
        // Gemini: the same message written twice, the last counts.
        write(
            ".gemini/tmp/abc/chats/session-2025-06-03-ab12cd34.jsonl",
            R"({"sessionId":"g","projectHash":"abc","startTime":"2025-06-03T08:00:00.000Z","kind":"main"})"
            "\n"
            R"({"id":"g1","timestamp":"2025-06-03T08:00:05.000Z","type":"gemini","content":"Hi","model":"gemini-2.5-pro","tokens":null})"
            "\n"
            R"({"id":"g1","timestamp":"2025-06-03T08:00:05.000Z","type":"gemini","content":"Hi","model":"gemini-2.5-pro","tokens":{"input":20000,"output":1500,"cached":0,"thoughts":0,"tool":0,"total":21500}})"
            "\n");
        // Copilot: a record from the future counts in today and this month.
        write(
            ".copilot/session-state/c.jsonl",
            R"({"id":"c1","timestamp":4070908800000,"model":"gpt-5","usage":{"prompt_tokens":1000000,"completion_tokens":200000}})"
            "\n");
    }

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
    Outcome run = tally("--scan");
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
    Outcome first = tally("--scan --some-launcher-flag");
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.err, "");
    EXPECT_EQ(first.out, kExpected);

    const std::string cache = testing::readText(support / "usage-scan.json");
    EXPECT_NE(cache.find("s1.jsonl"), std::string::npos);
    EXPECT_NE(cache.find("updates.jsonl"), std::string::npos);

    // Served from the cache: change a count without changing the size or the time...
    const fs::path log = home / ".claude/projects/-w-app/s1.jsonl";
    testing::setModified(log, 1'750'000'000);
    Outcome cached = tally("--scan");
    std::string text = testing::readText(log);
    text.replace(text.find("\"output_tokens\":3000"), 20, "\"output_tokens\":9000");
    testing::writeText(log, text);
    testing::setModified(log, 1'750'000'000.3);
    EXPECT_EQ(tally("--scan").out, first.out);
    // ...and read again once the time moves by half a second.
    testing::setModified(log, 1'750'000'000.5);
    EXPECT_NE(tally("--scan").out, first.out);
    EXPECT_EQ(cached.out, first.out);
}

TEST_F(ScanCommand, ABrokenCacheIsRebuiltAndAFailingSourceIsOneProblemLine) {
    writeHomeWithEveryTool();
    testing::writeText(support / "usage-scan.json", "{\"files\":");
    // An OpenCode "database" that SQLite cannot read.
    write(".local/share/opencode/opencode.db", "this is not a database");
    Outcome run = tally("--scan");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    ASSERT_TRUE(run.out.starts_with(kExpected)) << run.out;
    EXPECT_EQ(run.out.substr(kExpected.size()), "OpenCode: file is not a database\n");
}

TEST_F(ScanCommand, ExportWritesTheWindowAsCSVOrJSON) {
    writeHomeWithEveryTool();
    Outcome csv = tally("--export csv --days 0");
    EXPECT_EQ(csv.status, 0);
    EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), 6);
    EXPECT_TRUE(csv.out.ends_with(",gpt-5,,c,session,1,1000000,200000,0,0,0,3.250000,seat\n"))
        << csv.out;
    // The default window is the last 30 days: only the record from the future is in it.
    Outcome json = tally("--export json");
    EXPECT_EQ(std::count(json.out.begin(), json.out.end(), '{'), 1);
    Outcome bad = tally("--export xml");
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
    const Outcome one = tally("--export csv --days 0", "TALLY_SCAN_THREADS=1");
    std::filesystem::remove_all(support);
    const Outcome many = tally("--export csv --days 0", "TALLY_SCAN_THREADS=8");
    EXPECT_EQ(std::count(one.out.begin(), one.out.end(), '\n'), 46);
    EXPECT_EQ(one.out, many.out);
    EXPECT_EQ(tally("--scan", "TALLY_SCAN_THREADS=1").out,
              tally("--scan", "TALLY_SCAN_THREADS=3").out);
}

TEST_F(ScanCommand, HelpAndVersionAnswerOnStandardOutput) {
    Outcome help = tally("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("tally --scan [--remote]"), std::string::npos);
    EXPECT_EQ(tally("--version").out.rfind("tally ", 0), 0u);
    Outcome nothing = tally("");
    EXPECT_EQ(nothing.status, 2);
    EXPECT_NE(nothing.err.find("usage:"), std::string::npos);
}

}  // namespace
}  // namespace usagekit
