#include "sources/claude_code.h"

#include "core/scan_cache.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::describe;
using Lines = std::vector<std::string>;

const std::string kSession = "5e0c7a1e-3b2d-4c8f-9a61-2f7d1c0b9e44";
const std::string kDay = "|1772409600.0|";  // 2 March 2026, UTC

using ClaudeCodeSourceTest = testing::UTCHome;

TEST_F(ClaudeCodeSourceTest, ScanCountsEachRequestOnceAndSubagentLogsApart) {
    const std::string project = ".claude/projects/-home-ana-src-app/";
    copyFixture("claude/repeated_request_lines.jsonl", project + kSession + ".jsonl");
    copyFixture("claude/subagent_sidechain.jsonl",
                project + kSession + "/subagents/agent-a1b2c3d4.jsonl");
    ScanCache cache;
    // Request A's later blocks say output 480: the first line's 120 is what counts. The
    // all-zero synthetic error reply makes no record.
    const std::string context = "/home/ana/src/app|" + kSession;
    EXPECT_EQ(describe(ClaudeCodeSource().scan(cache)),
              (Lines{
                  "claude-code|claude-haiku-4-5" + kDay + context +
                      " @2026-03-02T10:20:05Z subagent calls=2 in=16 out=85 cr=3000 cw=3100 rs=0",
                  "claude-code|claude-opus-4-6|1772496000.0|" + context +
                      " @2026-03-03T08:00:00Z session calls=1 in=10 out=40 cr=5000 cw=0 rs=0",
                  "claude-code|claude-sonnet-4-6" + kDay + context +
                      " @2026-03-02T10:16:30Z session calls=2 in=8 out=470 cr=83000 cw=1100 rs=0",
              }));
    EXPECT_EQ(cache.files.size(), 2u);
}

TEST_F(ClaudeCodeSourceTest, EachFixtureGivesExactlyItsRecords) {
    const std::string sonnet = "claude-code|claude-sonnet-4-6" + kDay;
    const std::string app = "/home/ana/src/app|" + kSession;
    const struct {
        const char* fixture;
        Lines expected;
    } cases[] = {
        // Binary junk holding "usage", and a last line cut off mid-write.
        {"claude/cut_mid_line.jsonl",
         {sonnet + app + " @2026-03-02T11:00:00Z session calls=1 in=7 out=30 cr=1000 cw=0 rs=0"}},
        // "120" counts 120; 1e300 drops its line; a usage of 3 counts nothing; 2.9, true
        // and "12.5" read as 2, 1 and 12.
        {"claude/odd_counts.jsonl",
         {sonnet + app + " @2026-03-02T12:03:00Z session calls=2 in=122 out=6 cr=12 cw=0 rs=0"}},
        // Inputs 1, 2, 4, ... 64: the sum names the lines that counted. A uuid stands in for
        // a requestId that is not a string; lines with no key each count; a request whose
        // first line has a bad timestamp is not counted from a later line.
        {"claude/request_keys.jsonl",
         {sonnet + "/keys|k @2026-03-02T10:00:00Z session calls=3 in=25 out=0 cr=0 cw=0 rs=0"}},
        // isSidechain through the boolean accessor; a missing model; cwd and sessionId
        // that are not strings; usage that is empty, null, a number, escaped, or not in
        // the message.
        {"claude/line_rules.jsonl",
         {sonnet + "| @2026-03-02T10:00:00Z session calls=1 in=3 out=0 cr=0 cw=0 rs=0",
          sonnet + "|number-one @2026-03-02T10:00:00Z subagent calls=1 in=0 out=5 cr=0 cw=0 rs=0",
          sonnet + "|text-zero @2026-03-02T10:00:00Z session calls=1 in=0 out=5 cr=0 cw=0 rs=0",
          sonnet + "|word-true @2026-03-02T10:00:00Z session calls=1 in=0 out=5 cr=0 cw=0 rs=0",
          "claude-code|unknown" + kDay +
              "|no-model @2026-03-02T10:00:00Z session calls=1 in=2 out=0 cr=0 cw=0 rs=0"}},
    };
    for (const auto& c : cases) {
        const auto path = testing::fixture(c.fixture);
        const auto records = ClaudeCodeSource::parse(path);
        EXPECT_EQ(describe(records), c.expected) << c.fixture;
        // The streamed file and the text in memory go through the same line rules.
        EXPECT_EQ(records, ClaudeCodeSource::parse(std::string_view(testing::readText(path))))
            << c.fixture;
    }
}

}  // namespace
}  // namespace usagekit
