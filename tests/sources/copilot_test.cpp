#include "sources/copilot.h"

#include "core/scan_cache.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using testing::describe;

const std::string kMay3 = "|1777766400.0||";
const std::string kJune10 = "|1717977600.0||";

std::vector<UsageRecord> parse(const std::string& text, const std::string& session = "s") {
    return CopilotSource::parse(text, session);
}

class CopilotTest : public testing::TempHome {
  protected:
    testing::ScopedTimeZone m_utc{"UTC0"};
};

TEST_F(CopilotTest, ClientsOfEitherSpellingMeetInOneFile) {
    // A session event without usage, a line in seconds, one in milliseconds, a "usage" of
    // null beside a "tokenUsage", a line without a time and one without tokens.
    auto records = CopilotSource::parseFile(testing::fixture("copilot/mixed_clients.jsonl"));
    EXPECT_EQ(
        describe(records),
        (std::vector<std::string>{
            "github-copilot|claude-sonnet-4" + kMay3 +
                "mixed_clients @2026-05-03T09:00:06Z session calls=2 in=303 out=24 cr=0 cw=0 rs=0",
            "github-copilot|gpt-4.1" + kMay3 +
                "mixed_clients @2026-05-03T09:00:04Z session calls=1 in=1200 out=80 cr=0 cw=0 rs=0",
        }));
}

TEST_F(CopilotTest, EverySpellingIsAdded) {
    auto records = parse(
        R"({"timestamp":1718000000,"usage":{"prompt_tokens":10,"input_tokens":5,"inputTokens":"1",)"
        R"("completion_tokens":1,"output_tokens":2,"outputTokens":4,"cached_tokens":500}})");
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  "github-copilot|copilot" + kJune10 +
                  "s @2024-06-10T06:13:20Z session calls=1 in=16 out=7 cr=0 cw=0 rs=0"}));
}

TEST_F(CopilotTest, TimesAreSecondsMillisecondsOrText) {
    // One instant written four ways, then lines with no usable time.
    auto records = parse(R"({"timestamp":1718000000,"usage":{"prompt_tokens":1}})"
                         "\n"
                         R"({"timestamp":1718000000000,"usage":{"prompt_tokens":2}})"
                         "\n"
                         R"({"timestamp":"1718000000000","usage":{"prompt_tokens":4}})"
                         "\n"
                         R"({"timestamp":"2024-06-10T06:13:20Z","usage":{"prompt_tokens":8}})"
                         "\n"
                         R"({"usage":{"prompt_tokens":16}})"
                         "\n"
                         R"({"timestamp":0,"usage":{"prompt_tokens":32}})"
                         "\n"
                         R"({"timestamp":-1718000000,"usage":{"prompt_tokens":64}})"
                         "\n"
                         R"({"timestamp":"soon","usage":{"prompt_tokens":128}})"
                         "\n"
                         R"({"timestamp":1e300,"usage":{"prompt_tokens":256}})"
                         "\n");
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  "github-copilot|copilot" + kJune10 +
                  "s @2024-06-10T06:13:20Z session calls=4 in=15 out=0 cr=0 cw=0 rs=0"}));
}

TEST_F(CopilotTest, ModelComesFromTheLineThenTheUsage) {
    auto records =
        parse(R"({"timestamp":1718000000,"model":"gpt-5","usage":{"model":"o3","prompt_tokens":1}})"
              "\n"
              R"({"timestamp":1718000000,"usage":{"model":"o3","prompt_tokens":2}})"
              "\n"
              R"({"timestamp":1718000000,"model":7,"usage":{"prompt_tokens":4}})"
              "\n");
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  "github-copilot|copilot" + kJune10 +
                      "s @2024-06-10T06:13:20Z session calls=1 in=4 out=0 cr=0 cw=0 rs=0",
                  "github-copilot|gpt-5" + kJune10 +
                      "s @2024-06-10T06:13:20Z session calls=1 in=1 out=0 cr=0 cw=0 rs=0",
                  "github-copilot|o3" + kJune10 +
                      "s @2024-06-10T06:13:20Z session calls=1 in=2 out=0 cr=0 cw=0 rs=0",
              }));
}

TEST_F(CopilotTest, DamagedLinesDropOnlyThemselves) {
    const std::string gpt = "github-copilot|gpt-4.1" + kMay3;
    EXPECT_EQ(describe(CopilotSource::parseFile(testing::fixture("copilot/cut_mid_line.jsonl"))),
              (std::vector<std::string>{
                  gpt + "cut_mid_line @2026-05-03T09:00:04Z session calls=1 in=1200 out=80 cr=0 "
                        "cw=0 rs=0"}));
    // NUL bytes, junk that holds "usage", and a line that is not UTF-8.
    EXPECT_EQ(
        describe(CopilotSource::parseFile(testing::fixture("copilot/binary_junk.jsonl"))),
        (std::vector<std::string>{
            gpt +
            "binary_junk @2026-05-03T09:00:09Z session calls=1 in=700 out=7 cr=0 cw=0 rs=0"}));
    // 1e300, or two counts whose sum overflows, drop their line; the good one stands.
    EXPECT_EQ(describe(parse(
                  R"({"timestamp":1718000000,"usage":{"prompt_tokens":1e300}})"
                  "\n"
                  R"({"timestamp":1718000000,"usage":{"input_tokens":9e18,"inputTokens":9e18}})"
                  "\n"
                  R"({"timestamp":1718000000,"usage":{"input_tokens":9e18,"output_tokens":9e18}})"
                  "\n"
                  R"({"timestamp":1718000000,"usage":{"prompt_tokens":3}})")),
              (std::vector<std::string>{
                  "github-copilot|copilot" + kJune10 +
                  "s @2024-06-10T06:13:20Z session calls=1 in=3 out=0 cr=0 cw=0 rs=0"}));
}

TEST_F(CopilotTest, FilesAreJsonLinesThenJsonUnderEachRoot) {
    write(".copilot/session-state/a.jsonl", "");
    write(".copilot/b.json", "");
    write(".copilot/notes.txt", "");
    write(".copilot/.cache/hidden.jsonl", "");
    write(".config/github-copilot/c.jsonl", "");
    std::vector<std::string> names;
    for (const fs::path& file : CopilotSource::files())
        names.push_back(file.lexically_relative(home).string());
    EXPECT_EQ(names, (std::vector<std::string>{".copilot/session-state/a.jsonl", ".copilot/b.json",
                                               ".config/github-copilot/c.jsonl"}));

    // The second root follows XDG_CONFIG_HOME.
    testing::ScopedEnv config("XDG_CONFIG_HOME", (root / "config").string());
    EXPECT_EQ(CopilotSource::roots().back(), root / "config/github-copilot");
}

TEST_F(CopilotTest, ScanNamesEachSessionAfterItsFile) {
    auto file = copyFixture("copilot/mixed_clients.jsonl", ".copilot/session-state/4d2c9e.jsonl");
    ScanCache cache;
    auto records = CopilotSource().scan(cache);
    ASSERT_EQ(records.size(), 2u);
    for (const UsageRecord& r : records)
        EXPECT_EQ(r.session, "4d2c9e");
    EXPECT_TRUE(cache.files.contains(file.string()));
    // Streaming a file and parsing its text in one piece agree.
    for (const char* name : {"copilot/mixed_clients.jsonl", "copilot/cut_mid_line.jsonl",
                             "copilot/binary_junk.jsonl"}) {
        const fs::path path = testing::fixture(name);
        EXPECT_EQ(CopilotSource::parseFile(path),
                  CopilotSource::parse(testing::readText(path), path.stem().string()))
            << name;
    }
}

}  // namespace
}  // namespace usagekit
