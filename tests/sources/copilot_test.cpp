#include "sources/copilot.h"

#include "core/scan_cache.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// The records of a fixture, after checking that streaming the file and parsing its text
// agree. Every fixture's records fall on one day: 3 May 2026 or 10 June 2024 (UTC).
Lines parsed(const std::string& name) {
    const fs::path path = testing::fixture("copilot/" + name + ".jsonl");
    const auto records = CopilotSource::parseFile(path);
    EXPECT_EQ(records, CopilotSource::parse(testing::readText(path), name)) << name;
    return testing::describe(records);
}

std::string may3(const std::string& model, const std::string& rest) {
    return "github-copilot|" + model + "|1777766400.0||" + rest;
}
std::string june10(const std::string& model, const std::string& rest) {
    return "github-copilot|" + model + "|1717977600.0||" + rest;
}

using CopilotTest = testing::UTCHome;

TEST_F(CopilotTest, SpellingsTimesAndModelsOfEveryClient) {
    // An event without usage, a line in seconds, one in milliseconds, a "usage" of null
    // beside a "tokenUsage", a line without a time and one without tokens.
    EXPECT_EQ(parsed("mixed_clients"),
              (Lines{may3("claude-sonnet-4",
                          "mixed_clients @2026-05-03T09:00:06Z session calls=2 "
                          "in=303 out=24 cr=0 cw=0 rs=0"),
                     may3("gpt-4.1",
                          "mixed_clients @2026-05-03T09:00:04Z session calls=1 "
                          "in=1200 out=80 cr=0 cw=0 rs=0")}));
    // Every spelling is added; the line's model, then the usage's, then "copilot".
    const std::string at = "spellings_and_models @2024-06-10T06:13:20Z session calls=1 ";
    EXPECT_EQ(parsed("spellings_and_models"),
              (Lines{june10("copilot", at + "in=4 out=0 cr=0 cw=0 rs=0"),
                     june10("gpt-5", at + "in=16 out=7 cr=0 cw=0 rs=0"),
                     june10("o3", at + "in=2 out=0 cr=0 cw=0 rs=0")}));
    // One instant as seconds, milliseconds (also as text) and ISO text; no time, 0, a
    // negative one, words and 1e300 drop their lines.
    EXPECT_EQ(parsed("odd_times"),
              Lines{june10("gpt-4.1",
                           "odd_times @2024-06-10T06:13:20Z session calls=4 in=15 "
                           "out=0 cr=0 cw=0 rs=0")});
}

TEST_F(CopilotTest, DamagedLinesDropOnlyThemselves) {
    EXPECT_EQ(parsed("cut_mid_line"),
              Lines{may3("gpt-4.1",
                         "cut_mid_line @2026-05-03T09:00:04Z session calls=1 "
                         "in=1200 out=80 cr=0 cw=0 rs=0")});
    // NUL bytes, junk that holds "usage", and a line that is not UTF-8.
    EXPECT_EQ(parsed("binary_junk"),
              Lines{may3("gpt-4.1",
                         "binary_junk @2026-05-03T09:00:09Z session calls=1 in=700 "
                         "out=7 cr=0 cw=0 rs=0")});
    // 1e300, or counts whose sum overflows, drop their line.
    EXPECT_EQ(parsed("count_out_of_range"),
              Lines{june10("gpt-4.1",
                           "count_out_of_range @2024-06-10T06:13:20Z session "
                           "calls=1 in=3 out=0 cr=0 cw=0 rs=0")});
}

TEST_F(CopilotTest, ScanReadsBothRootsAndNamesSessionsAfterFiles) {
    copyFixture("copilot/mixed_clients.jsonl", ".copilot/session-state/4d2c9e.jsonl");
    for (const char* other : {".copilot/b.json", ".copilot/notes.txt",
                              ".copilot/.cache/hidden.jsonl", ".config/github-copilot/c.jsonl"})
        write(other, "");
    std::vector<std::string> names;
    for (const fs::path& file : CopilotSource::files())
        names.push_back(file.lexically_relative(home).string());
    EXPECT_EQ(names, (Lines{".copilot/session-state/4d2c9e.jsonl", ".copilot/b.json",
                            ".config/github-copilot/c.jsonl"}));

    ScanCache cache;
    auto records = CopilotSource().scan(cache);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].session, "4d2c9e");
    EXPECT_EQ(cache.files.size(), 3u);

    testing::ScopedEnv config("XDG_CONFIG_HOME", (root / "config").string());
    EXPECT_EQ(CopilotSource::roots().back(), root / "config/github-copilot");
}

}  // namespace
}  // namespace usagekit
