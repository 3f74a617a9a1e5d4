#include "sources/gemini_cli.h"

#include "core/scan_cache.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using testing::describe;
using Counts = GeminiCLISource::TokenCounts;

// Day starts (UTC) of the fixtures' dates.
const std::string kApril2 = "|1775088000.0|";
const std::string kNovember20 = "|1763596800.0|";
const std::string kSession = "3bac0f3e-5a1d-4c57-9a57-1f0e2d7c9b11";

std::optional<Counts> counts(const std::string& message) {
    auto document = JSONDocument::parse(message);
    EXPECT_TRUE(document) << message;
    return GeminiCLISource::tokenCounts(document->root());
}

std::vector<UsageRecord> lines(const std::string& text) {
    return GeminiCLISource::parse(std::string_view(text), std::nullopt, "session-fallback");
}

std::vector<std::string> describeInOrder(const std::vector<UsageRecord>& records) {
    std::vector<std::string> out;
    for (const UsageRecord& r : records)
        out.push_back(describe(r));
    return out;
}

class GeminiTest : public testing::TempHome {
  protected:
    testing::ScopedTimeZone m_utc{"UTC0"};
};

TEST(GeminiTokenCounts, PromptCountsIncludeTheCachedTokens) {
    EXPECT_EQ(counts(R"({"usageMetadata":{"promptTokenCount":100,"cachedContentTokenCount":30,)"
                     R"("candidatesTokenCount":20,"thoughtsTokenCount":4}})"),
              (Counts{70, 20, 30, 4}));
    // More cached than prompted never makes input negative.
    EXPECT_EQ(counts(R"({"usageMetadata":{"promptTokenCount":10,"cachedContentTokenCount":30}})"),
              (Counts{0, 0, 30, 0}));
    // A prompt count copied into a tokens object replaces the summed input spellings.
    EXPECT_EQ(counts(R"({"tokens":{"input":10,"promptTokenCount":100,"cached":30}})"),
              (Counts{70, 0, 30, 0}));
}

TEST(GeminiTokenCounts, EverySpellingIsAddedAndNoneWins) {
    EXPECT_EQ(counts(R"({"tokens":{"input":10,"input_tokens":5}})"), (Counts{15, 0, 0, 0}));
    EXPECT_EQ(counts(R"({"tokens":{"inputTokens":1,"prompt":2,"output":1,"outputTokens":2,)"
                     R"("output_tokens":4,"candidates":8,"candidatesTokenCount":16,"cached":1,)"
                     R"("cache":2,"cachedContentTokenCount":4,"cache_read":8,"cacheRead":16,)"
                     R"("thoughts":1,"reasoning":2,"thoughtsTokenCount":4}})"),
              (Counts{3, 31, 31, 7}));
    EXPECT_EQ(counts(R"({"tokens":{"input":"120","output":"8"}})"), (Counts{120, 8, 0, 0}));
}

TEST(GeminiTokenCounts, KeysAreTriedInOrderUntilOneGivesCounts) {
    // Metadata of zeros, or not an object, falls back to "tokens".
    EXPECT_EQ(counts(R"({"usageMetadata":{"promptTokenCount":0},"tokens":{"input":5}})"),
              (Counts{5, 0, 0, 0}));
    EXPECT_EQ(counts(R"({"usageMetadata":7,"tokens":{"input":5}})"), (Counts{5, 0, 0, 0}));
    // Metadata with counts wins over every other key.
    EXPECT_EQ(counts(R"({"usageMetadata":{"candidatesTokenCount":2},"tokens":{"input":9}})"),
              (Counts{0, 2, 0, 0}));
    EXPECT_EQ(counts(R"({"tokens":{"input":1},"usage":{"input":9}})"), (Counts{1, 0, 0, 0}));
    EXPECT_EQ(counts(R"({"tokens":null,"usage":{"output":3}})"), (Counts{0, 3, 0, 0}));
    EXPECT_EQ(counts(R"({"tokens":{"input":0},"usage":"n/a","tokenUsage":{"outputTokens":2}})"),
              (Counts{0, 2, 0, 0}));
    // A total alone is all input; next to real counts it is ignored.
    EXPECT_EQ(counts(R"({"tokens":{"total":42}})"), (Counts{42, 0, 0, 0}));
    EXPECT_EQ(counts(R"({"tokens":{"output":1,"total":42}})"), (Counts{0, 1, 0, 0}));
    EXPECT_FALSE(counts(R"({"tokens":{"tool":5,"total":0}})"));
    EXPECT_FALSE(counts(R"({"content":"no usage at all"})"));
}

TEST(GeminiTokenCounts, ACountBeyond64BitsMeansNoneWithoutACrash) {
    EXPECT_FALSE(counts(R"({"tokens":{"input":1e300}})"));
    EXPECT_FALSE(counts(R"({"tokens":{"input":9e18,"output":9e18}})"));
    // The bad count spoils the whole message, not only its own key.
    EXPECT_FALSE(counts(R"({"usageMetadata":{"promptTokenCount":1e300},"tokens":{"input":5}})"));
}

TEST(GeminiLines, SessionAndModelRunOnFromLineToLine) {
    testing::ScopedTimeZone utc("UTC0");
    const std::string t = R"("timestamp":"2026-04-02T08:00:05Z")";
    auto records = lines(R"({"sessionId":"s1","startTime":"2026-04-02T08:00:00Z","kind":"main"})"
                         "\n"
                         R"({"id":"a",)" +
                         t +
                         R"(,"model":"gemini-2.5-pro","tokens":{"input":10}})"
                         "\n"
                         R"({"id":"b",)" +
                         t +
                         R"(,"tokens":{"input":20}})"
                         "\n"
                         R"({"sessionId":"","id":"c",)" +
                         t +
                         R"(,"modelName":"gemini-2.5-flash","tokens":{"input":30}})"
                         "\n"
                         R"({"sessionId":"s2","id":"d",)" +
                         t +
                         R"(,"tokens":{"input":40}})"
                         "\n");
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  "gemini-cli|gemini-2.5-flash" + kApril2 +
                      "|s1 @2026-04-02T08:00:05Z session calls=1 in=30 out=0 cr=0 cw=0 rs=0",
                  "gemini-cli|gemini-2.5-flash" + kApril2 +
                      "|s2 @2026-04-02T08:00:05Z session calls=1 in=40 out=0 cr=0 cw=0 rs=0",
                  "gemini-cli|gemini-2.5-pro" + kApril2 +
                      "|s1 @2026-04-02T08:00:05Z session calls=2 in=30 out=0 cr=0 cw=0 rs=0",
              }));
    // Before any line names a model or session: "gemini" and the file's own name. Lines
    // without an id are separate messages, however alike.
    const std::string bare = "{" + t + R"(,"tokens":{"input":1}})" + "\n";
    EXPECT_EQ(
        describe(lines(bare + bare)),
        (std::vector<std::string>{
            "gemini-cli|gemini" + kApril2 +
            "|session-fallback @2026-04-02T08:00:05Z session calls=2 in=2 out=0 cr=0 cw=0 rs=0"}));
}

TEST(GeminiLines, DatesComeFromTimestampThenStartTimeThenSeconds) {
    testing::ScopedTimeZone utc("UTC0");
    auto records = lines(R"({"timestamp":"2026-04-02T08:00:05Z","tokens":{"input":1}})"
                         "\n"
                         R"({"startTime":"2026-04-02T09:00:00Z","tokens":{"input":2}})"
                         "\n"
                         R"({"timestamp":1775120400,"tokens":{"input":4}})"
                         "\n"
                         R"({"timestamp":"1775124000","tokens":{"input":8}})"
                         "\n"
                         // Not after 1970, or no time at all: no record.
                         R"({"timestamp":0,"tokens":{"input":16}})"
                         "\n"
                         R"({"tokens":{"input":32}})"
                         "\n"
                         R"({"timestamp":"1969-12-31T23:59:59Z","tokens":{"input":64}})"
                         "\n"
                         R"({"timestamp":-5,"tokens":{"input":128}})"
                         "\n"
                         R"({"timestamp":"yesterday","tokens":{"input":256}})"
                         "\n"
                         R"({"timestamp":1e300,"tokens":{"input":512}})"
                         "\n");
    EXPECT_EQ(
        describe(records),
        (std::vector<std::string>{
            "gemini-cli|gemini" + kApril2 +
            "|session-fallback @2026-04-02T10:00:00Z session calls=4 in=15 out=0 cr=0 cw=0 rs=0"}));
}

TEST_F(GeminiTest, TheLastWriteOfAMessageWinsInThePlaceOfTheFirst) {
    write(".gemini/tmp/9f2c4e7d1a/.project_root", "  /home/ana/src/app \n");
    auto file = copyFixture("gemini/rewritten_message_ids.jsonl",
                            ".gemini/tmp/9f2c4e7d1a/chats/session-2026-04-02T08-00-3bac0f3e.jsonl");
    // Message g1 is written three times (no tokens, then 10, then 310 output tokens) around
    // g2; it stays first.
    EXPECT_EQ(describeInOrder(GeminiCLISource::parseFile(file)),
              (std::vector<std::string>{
                  "gemini-cli|gemini-2.5-pro" + kApril2 + "/home/ana/src/app|" + kSession +
                      " @2026-04-02T08:00:05Z session calls=1 in=12800 out=310 cr=4000 cw=0 rs=22",
                  "gemini-cli|gemini-2.5-flash" + kApril2 + "/home/ana/src/app|" + kSession +
                      " @2026-04-02T08:01:00Z session calls=1 in=500 out=40 cr=100 cw=0 rs=0",
              }));
}

TEST_F(GeminiTest, DamagedLinesDropOnlyThemselves) {
    const std::string g2 = "gemini-cli|gemini-2.5-pro" + kApril2 + "|" + kSession;
    EXPECT_EQ(describe(GeminiCLISource::parseFile(testing::fixture("gemini/cut_mid_line.jsonl"))),
              (std::vector<std::string>{
                  g2 + " @2026-04-02T08:00:05Z session calls=1 in=1200 out=10 cr=0 cw=0 rs=0"}));
    // NUL bytes, a PNG header, and a line whose text is not UTF-8 (which is no JSON).
    EXPECT_EQ(describe(GeminiCLISource::parseFile(testing::fixture("gemini/binary_junk.jsonl"))),
              (std::vector<std::string>{
                  g2 + " @2026-04-02T08:00:09Z session calls=1 in=700 out=7 cr=0 cw=0 rs=0"}));
    // 1e300 and two counts whose sum overflows drop their lines; "120" counts 120.
    EXPECT_EQ(
        describe(GeminiCLISource::parseFile(testing::fixture("gemini/count_out_of_range.jsonl"))),
        (std::vector<std::string>{
            g2 + " @2026-04-02T08:00:07Z session calls=1 in=120 out=8 cr=0 cw=0 rs=0"}));
}

TEST_F(GeminiTest, OlderSessionDocumentsAreReadWhole) {
    // Two replies without ids both count; the document's model stands in for a reply's
    // own; a reply with only "startTime" has no date in this form; a string is no reply.
    auto records = GeminiCLISource::parseFile(testing::fixture("gemini/legacy_document.json"));
    EXPECT_EQ(
        describe(records),
        (std::vector<std::string>{
            "gemini-cli|gemini-2.5-flash" + kNovember20 +
                "|legacy-7c1d @2025-11-20T14:02:05Z session calls=1 in=50 out=5 cr=0 cw=0 rs=0",
            "gemini-cli|gemini-2.5-pro" + kNovember20 +
                "|legacy-7c1d @2025-11-20T14:01:05Z session calls=2 in=270 out=30 cr=30 cw=0 rs=5",
        }));

    // Without a sessionId the file's name is the session; a ".json" file that is no
    // document is read as lines.
    auto document =
        write(".gemini/tmp/p/chats/session-abc.json",
              R"({"messages":[{"timestamp":"2026-04-02T08:00:05Z","tokens":{"input":3}}]})");
    auto linesInJson = write(".gemini/tmp/p/chats/session-def.json",
                             R"({"sessionId":"s9","model":"gemini-2.5-pro"})"
                             "\n"
                             R"({"timestamp":"2026-04-02T08:00:05Z","tokens":{"input":4}})"
                             "\n");
    EXPECT_EQ(describe(GeminiCLISource::parseFile(document)),
              (std::vector<std::string>{
                  "gemini-cli|gemini" + kApril2 +
                  "|session-abc @2026-04-02T08:00:05Z session calls=1 in=3 out=0 cr=0 cw=0 rs=0"}));
    EXPECT_EQ(describe(GeminiCLISource::parseFile(linesInJson)),
              (std::vector<std::string>{
                  "gemini-cli|gemini-2.5-pro" + kApril2 +
                  "|s9 @2026-04-02T08:00:05Z session calls=1 in=4 out=0 cr=0 cw=0 rs=0"}));
}

TEST_F(GeminiTest, FilesAreChatsOfBothHomesWithoutCheckpoints) {
    const fs::path second = root / "elsewhere";
    testing::ScopedEnv geminiHome("GEMINI_CLI_HOME", second.string());
    for (const char* name :
         {"session-1.json", "session-2.jsonl", "other.jsonl", "checkpoint-1.json",
          "checkpoint-2.jsonl", "notes.json", ".session-3.jsonl"})
        write(fs::path(".gemini/tmp/p1/chats") / name, "{}");
    write(".gemini/tmp/p1/session-4.json", "{}");  // not below "chats"
    write(".gemini/chats/session-5.jsonl", "{}");  // not below "tmp"
    testing::writeText(second / ".gemini/tmp/p2/chats/session-6.jsonl", "{}");

    std::vector<std::string> names;
    for (const fs::path& file : GeminiCLISource::files())
        names.push_back(file.filename().string());
    ASSERT_EQ(names.size(), 4u);
    // Directory order within one suffix is the file system's.
    std::sort(names.begin(), names.begin() + 2);
    EXPECT_EQ(names, (std::vector<std::string>{"other.jsonl", "session-2.jsonl", "session-1.json",
                                               "session-6.jsonl"}));
}

TEST_F(GeminiTest, ProjectIsTheNearestNonEmptyProjectRoot) {
    write(".gemini/tmp/.project_root", "/w/outer");
    write(".gemini/tmp/p1/.project_root", "\t/home/ana/src/app\n");
    write(".gemini/tmp/p2/.project_root", " \n");
    EXPECT_EQ(GeminiCLISource::projectName(home / ".gemini/tmp/p1/chats/session-1.jsonl"),
              "/home/ana/src/app");
    EXPECT_EQ(GeminiCLISource::projectName(home / ".gemini/tmp/p2/chats/session-1.jsonl"),
              "/w/outer");
    EXPECT_EQ(GeminiCLISource::projectName(home / "other/chats/session-1.jsonl"), std::nullopt);
}

TEST_F(GeminiTest, ScanReadsEveryHomeThroughTheCache) {
    const fs::path second = root / "elsewhere";
    testing::ScopedEnv geminiHome("GEMINI_CLI_HOME", second.string());
    copyFixture("gemini/cut_mid_line.jsonl", ".gemini/tmp/p1/chats/session-a.jsonl");
    testing::writeText(second / ".gemini/tmp/p2/chats/session-b.json",
                       testing::readText(testing::fixture("gemini/legacy_document.json")));
    ScanCache cache;
    auto records = GeminiCLISource().scan(cache);
    EXPECT_EQ(records.size(), 3u);
    EXPECT_EQ(cache.files.size(), 2u);
    for (const UsageRecord& r : records)
        EXPECT_EQ(r.provider, Provider::geminiCLI);
}

}  // namespace
}  // namespace usagekit
