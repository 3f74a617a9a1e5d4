#include "sources/copilot.h"

#include "core/scan_cache.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

using CopilotTest = testing::UTCHome;

TEST_F(CopilotTest, EachFixtureGivesExactlyItsRecords) {
    for (const char* fixture : {
             // An event without usage, a line in seconds, one in milliseconds, a "usage" of
             // null beside a "tokenUsage", a line without a time and one without tokens.
             "copilot/mixed_clients.jsonl",
             // Every spelling is added; the line's model, then the usage's, then "copilot".
             "copilot/spellings_and_models.jsonl",
             // One instant as seconds, milliseconds (also as text) and ISO text; no time, 0, a
             // negative one, words and 1e300 drop their lines.
             "copilot/odd_times.jsonl",
             // Damaged lines drop only themselves: a last line cut off; NUL bytes, junk that
             // holds "usage", a line that is not UTF-8; 1e300 or counts whose sum overflows.
             "copilot/cut_mid_line.jsonl",
             "copilot/binary_junk.jsonl",
             "copilot/count_out_of_range.jsonl",
         }) {
        const auto path = testing::fixture(fixture);
        testing::expectFixtureRecords(
            fixture, CopilotSource::parseFile(path),
            CopilotSource::parse(testing::readText(path), path.stem().string()));
    }
}

TEST_F(CopilotTest, ScanReadsBothRootsAndNamesSessionsAfterFiles) {
    copyFixture("copilot/mixed_clients.jsonl", ".copilot/session-state/4d2c9e.jsonl");
    for (const char* other : {".copilot/b.json", ".copilot/notes.txt",
                              ".copilot/.cache/hidden.jsonl", ".config/github-copilot/c.jsonl"})
        write(other, "");
    std::vector<std::string> names;
    for (const std::string& file : CopilotSource::files())
        names.push_back(fs::path(file).lexically_relative(home).string());
    EXPECT_EQ(names, (Lines{".copilot/session-state/4d2c9e.jsonl", ".copilot/b.json",
                            ".config/github-copilot/c.jsonl"}));

    ScanCache cache;
    auto records = CopilotSource().scan(cache).all();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].session, "4d2c9e");
    EXPECT_EQ(cache.files.size(), 3u);

    testing::ScopedEnv config("XDG_CONFIG_HOME", (root / "config").string());
    EXPECT_EQ(CopilotSource::roots().back(), root / "config/github-copilot");
}

}  // namespace
}  // namespace usagekit
