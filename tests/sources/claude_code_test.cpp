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
    EXPECT_EQ(describe(ClaudeCodeSource().scan(cache).all()),
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
    for (const char* fixture : {
             // Binary junk holding "usage", and a last line cut off mid-write.
             "claude/cut_mid_line.jsonl",
             // "120" counts 120; 1e300 drops its line; a usage of 3 counts nothing; 2.9, true
             // and "12.5" read as 2, 1 and 12.
             "claude/odd_counts.jsonl",
             // Inputs 1, 2, 4, ... 64: the sum names the lines that counted. A uuid stands in
             // for a requestId that is not a string; lines with no key each count; a request
             // whose first line has a bad timestamp is not counted from a later line.
             "claude/request_keys.jsonl",
             // isSidechain through the boolean accessor; a missing model; cwd and sessionId
             // that are not strings; usage that is empty, null, a number, escaped, or not in
             // the message.
             "claude/line_rules.jsonl",
         }) {
        const auto path = testing::fixture(fixture);
        testing::expectFixtureRecords(
            fixture, ClaudeCodeSource::parse(path),
            ClaudeCodeSource::parse(std::string_view(testing::readText(path))));
    }
}

}  // namespace
}  // namespace usagekit
