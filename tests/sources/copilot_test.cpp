#include "sources/copilot.h"

#include "core/scan_cache.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using testing::describe;
using Lines = std::vector<std::string>;

// provider|model|day start (UTC)|project|session, per fixture file.
const std::string kMay3 = "|1777766400.0||";
const std::string kJune10 = "|1717977600.0||";

Lines parsed(const std::string& name) {
    return describe(CopilotSource::parseFile(testing::fixture("copilot/" + name + ".jsonl")));
}

class CopilotTest : public testing::TempHome {
  protected:
    testing::ScopedTimeZone m_utc{"UTC0"};
};

TEST_F(CopilotTest, SpellingsTimesAndModelsOfEveryClient) {
    // An event without usage, a line in seconds, one in milliseconds, a "usage" of null
    // beside a "tokenUsage", a line without a time and one without tokens.
    EXPECT_EQ(parsed("mixed_clients"),
              (Lines{"github-copilot|claude-sonnet-4" + kMay3 +
                         "mixed_clients @2026-05-03T09:00:06Z session calls=2 in=303 out=24 cr=0 "
                         "cw=0 rs=0",
                     "github-copilot|gpt-4.1" + kMay3 +
                         "mixed_clients @2026-05-03T09:00:04Z session calls=1 in=1200 out=80 cr=0 "
                         "cw=0 rs=0"}));
    // Every spelling is added; the line's model, then the usage's, then "copilot".
    const std::string tail = "spellings_and_models @2024-06-10T06:13:20Z session calls=1 ";
    EXPECT_EQ(parsed("spellings_and_models"),
              (Lines{"github-copilot|copilot" + kJune10 + tail + "in=4 out=0 cr=0 cw=0 rs=0",
                     "github-copilot|gpt-5" + kJune10 + tail + "in=16 out=7 cr=0 cw=0 rs=0",
                     "github-copilot|o3" + kJune10 + tail + "in=2 out=0 cr=0 cw=0 rs=0"}));
    // One instant as seconds, milliseconds (also as text) and ISO text; no time, 0, a
    // negative one, words and 1e300 drop their lines.
    EXPECT_EQ(
        parsed("odd_times"),
        (Lines{"github-copilot|gpt-4.1" + kJune10 +
               "odd_times @2024-06-10T06:13:20Z session calls=4 in=15 out=0 cr=0 cw=0 rs=0"}));
}

TEST_F(CopilotTest, DamagedLinesDropOnlyThemselves) {
    const std::string gpt = "github-copilot|gpt-4.1";
    EXPECT_EQ(
        parsed("cut_mid_line"),
        (Lines{
            gpt + kMay3 +
            "cut_mid_line @2026-05-03T09:00:04Z session calls=1 in=1200 out=80 cr=0 cw=0 rs=0"}));
    // NUL bytes, junk that holds "usage", and a line that is not UTF-8.
    EXPECT_EQ(
        parsed("binary_junk"),
        (Lines{gpt + kMay3 +
               "binary_junk @2026-05-03T09:00:09Z session calls=1 in=700 out=7 cr=0 cw=0 rs=0"}));
    // 1e300, or counts whose sum overflows, drop their line.
    EXPECT_EQ(parsed("count_out_of_range"),
              (Lines{gpt + kJune10 +
                     "count_out_of_range @2024-06-10T06:13:20Z session calls=1 in=3 out=0 cr=0 "
                     "cw=0 rs=0"}));
}

TEST_F(CopilotTest, ScanReadsBothRootsAndNamesSessionsAfterFiles) {
    auto a = copyFixture("copilot/mixed_clients.jsonl", ".copilot/session-state/4d2c9e.jsonl");
    write(".copilot/b.json", "");
    write(".copilot/notes.txt", "");
    write(".copilot/.cache/hidden.jsonl", "");
    write(".config/github-copilot/c.jsonl", "");
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

TEST_F(CopilotTest, StreamingAFileAgreesWithParsingItsText) {
    for (const char* name : {"mixed_clients", "cut_mid_line", "binary_junk", "odd_times"}) {
        const fs::path path = testing::fixture("copilot/" + std::string(name) + ".jsonl");
        EXPECT_EQ(CopilotSource::parseFile(path),
                  CopilotSource::parse(testing::readText(path), name))
            << name;
    }
}

}  // namespace
}  // namespace usagekit
