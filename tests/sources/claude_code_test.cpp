#include "sources/claude_code.h"

#include "core/scan_cache.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::describe;

const std::string kProject = ".claude/projects/-home-ana-src-app/";
const std::string kSession = "5e0c7a1e-3b2d-4c8f-9a61-2f7d1c0b9e44";
// provider|model|day start (UTC)|project|session
const std::string kMarch2 = "|1772409600.0|/home/ana/src/app|" + kSession;
const std::string kMarch3 = "|1772496000.0|/home/ana/src/app|" + kSession;

// One line of a reply as Claude Code writes it, with only the fields a test varies.
std::string reply(const std::string& head, const std::string& usage,
                  const std::string& time = "2026-03-02T10:00:00.000Z") {
    return "{" + head + R"(,"message":{"model":"claude-sonnet-4-6","role":"assistant","usage":)" +
           usage + R"(},"type":"assistant","timestamp":")" + time + "\"}\n";
}

std::vector<UsageRecord> parseText(const std::string& text) {
    return ClaudeCodeSource::parse(std::string_view(text));
}

class ClaudeCodeSourceTest : public testing::TempHome {
  protected:
    testing::ScopedTimeZone m_utc{"UTC0"};
};

TEST_F(ClaudeCodeSourceTest, ScanCountsEachRequestOnceAndSubagentLogsApart) {
    copyFixture("claude/repeated_request_lines.jsonl", kProject + kSession + ".jsonl");
    copyFixture("claude/subagent_sidechain.jsonl",
                kProject + kSession + "/subagents/agent-a1b2c3d4.jsonl");
    ScanCache cache;
    auto records = ClaudeCodeSource().scan(cache);
    // Request A's later blocks say output 480: the first line's 120 is what counts. The
    // all-zero synthetic error reply makes no record.
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  "claude-code|claude-haiku-4-5" + kMarch2 +
                      " @2026-03-02T10:20:05Z subagent calls=2 in=16 out=85 cr=3000 cw=3100 rs=0",
                  "claude-code|claude-opus-4-6" + kMarch3 +
                      " @2026-03-03T08:00:00Z session calls=1 in=10 out=40 cr=5000 cw=0 rs=0",
                  "claude-code|claude-sonnet-4-6" + kMarch2 +
                      " @2026-03-02T10:16:30Z session calls=2 in=8 out=470 cr=83000 cw=1100 rs=0",
              }));
    EXPECT_EQ(cache.files.size(), 2u);
}

TEST_F(ClaudeCodeSourceTest, UnchangedFileComesFromTheCache) {
    auto path = copyFixture("claude/repeated_request_lines.jsonl", kProject + "s.jsonl");
    ScanCache cache;
    UsageRecord cached;
    cached.id = "from-cache";
    cache.store(path.string(), ScanCache::stamp(path), {cached});
    auto records = ClaudeCodeSource().scan(cache);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].id, "from-cache");
}

TEST_F(ClaudeCodeSourceTest, DamagedLinesDropOnlyThemselves) {
    // A line of binary junk that holds "usage", then a last line cut off mid-write.
    auto cut = ClaudeCodeSource::parse(testing::fixture("claude/cut_mid_line.jsonl"));
    EXPECT_EQ(describe(cut),
              (std::vector<std::string>{
                  "claude-code|claude-sonnet-4-6" + kMarch2 +
                      " @2026-03-02T11:00:00Z session calls=1 in=7 out=30 cr=1000 cw=0 rs=0",
              }));
    // "120" counts 120; 1e300 drops its line; a usage of 3 counts nothing; 2.9, true and
    // "12.5" read as 2, 1 and 12.
    auto odd = ClaudeCodeSource::parse(testing::fixture("claude/odd_counts.jsonl"));
    EXPECT_EQ(describe(odd),
              (std::vector<std::string>{
                  "claude-code|claude-sonnet-4-6" + kMarch2 +
                      " @2026-03-02T12:03:00Z session calls=2 in=122 out=6 cr=12 cw=0 rs=0",
              }));
}

TEST_F(ClaudeCodeSourceTest, FileAndTextFormsAgree) {
    for (const char* name : {"claude/repeated_request_lines.jsonl", "claude/cut_mid_line.jsonl",
                             "claude/odd_counts.jsonl", "claude/subagent_sidechain.jsonl"}) {
        const auto path = testing::fixture(name);
        EXPECT_EQ(ClaudeCodeSource::parse(path),
                  ClaudeCodeSource::parse(std::string_view(testing::readText(path))))
            << name;
    }
}

TEST_F(ClaudeCodeSourceTest, RequestKeyFallsBackToUuidThenToNothing) {
    const std::string usage = R"({"input_tokens":1})";
    // A requestId that is not a string gives way to the uuid, so all three lines are one
    // request. Lines with no key at all are each their own request.
    auto records = parseText(reply(R"("uuid":"u1")", usage) + reply(R"("uuid":"u1")", usage) +
                             reply(R"("requestId":7,"uuid":"u1")", usage) +
                             reply(R"("cwd":"/a")", usage) + reply(R"("cwd":"/a")", usage));
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  "claude-code|claude-sonnet-4-6|1772409600.0|/a| @2026-03-02T10:00:00Z "
                  "session calls=2 in=2 out=0 cr=0 cw=0 rs=0",
                  "claude-code|claude-sonnet-4-6|1772409600.0|| @2026-03-02T10:00:00Z "
                  "session calls=1 in=1 out=0 cr=0 cw=0 rs=0",
              }));
}

TEST_F(ClaudeCodeSourceTest, RequestWhoseFirstLineHasABadTimestampIsNotCountedLater) {
    const std::string usage = R"({"input_tokens":1})";
    auto records = parseText(reply(R"("requestId":"r1")", usage, "2026-03-02 10:00:00") +
                             reply(R"("requestId":"r1")", usage) +
                             reply(R"("requestId":"r2")", usage, "yesterday"));
    EXPECT_TRUE(records.empty());
}

TEST_F(ClaudeCodeSourceTest, LineRulesForKindModelAndUsage) {
    auto one = [](const std::string& line) {
        auto records = parseText(line);
        return records.empty() ? std::string("none") : describe(records[0]);
    };
    const std::string bare = "claude-code|claude-sonnet-4-6|1772409600.0||";
    // The boolean accessor: a number that is not 0 is true; a word is not a number.
    EXPECT_EQ(one(reply(R"("isSidechain":"true")", R"({"output_tokens":5})")),
              bare + " @2026-03-02T10:00:00Z session calls=1 in=0 out=5 cr=0 cw=0 rs=0");
    EXPECT_EQ(one(reply(R"("isSidechain":1)", R"({"output_tokens":5})")),
              bare + " @2026-03-02T10:00:00Z subagent calls=1 in=0 out=5 cr=0 cw=0 rs=0");
    EXPECT_EQ(one(reply(R"("isSidechain":"0")", R"({"output_tokens":5})")),
              bare + " @2026-03-02T10:00:00Z session calls=1 in=0 out=5 cr=0 cw=0 rs=0");
    EXPECT_EQ(one(R"({"message":{"usage":{"input_tokens":2}},"timestamp":"2026-03-02T10:00:00Z"})"),
              "claude-code|unknown|1772409600.0|| @2026-03-02T10:00:00Z session calls=1 in=2 "
              "out=0 cr=0 cw=0 rs=0");
    // cwd and sessionId must be strings; nothing falls back to the file's name.
    EXPECT_EQ(one(reply(R"("cwd":7,"sessionId":null)", R"({"input_tokens":2})")),
              bare + " @2026-03-02T10:00:00Z session calls=1 in=2 out=0 cr=0 cw=0 rs=0");
    EXPECT_EQ(one(reply(R"("isSidechain":false)", R"({"input_tokens":0,"output_tokens":0})")),
              "none");
    EXPECT_EQ(one(reply(R"("isSidechain":false)", "null")), "none");
    // Only the quoted word "usage" lets a line through to the parser: an escaped key is
    // the same JSON but never parsed, and the bare word elsewhere does not count.
    EXPECT_EQ(one(R"({"message":{"us\u0061ge":{"input_tokens":2}},"note":"usage stats",)"
                  R"("timestamp":"2026-03-02T10:00:00Z"})"),
              "none");
    // usage must sit in message, and message must be an object.
    EXPECT_EQ(one(R"({"usage":{"input_tokens":2},"timestamp":"2026-03-02T10:00:00Z"})"), "none");
    EXPECT_EQ(one(R"({"message":"usage","timestamp":"2026-03-02T10:00:00Z"})"), "none");
}

}  // namespace
}  // namespace usagekit
