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
using Lines = std::vector<std::string>;

// provider|model + day start (UTC) + project|session.
const std::string kPro = "gemini-cli|gemini-2.5-pro|1775088000.0|";
const std::string kFlash = "gemini-cli|gemini-2.5-flash|1775088000.0|";
const std::string kSession = "3bac0f3e-5a1d-4c57-9a57-1f0e2d7c9b11";

using GeminiTest = testing::UTCHome;

TEST(GeminiTokenCounts, EverySpellingAndFallbackIsRead) {
    const std::pair<const char*, std::optional<Counts>> cases[] = {
        // The API's prompt count holds the cached tokens, and never goes below 0.
        {R"({"usageMetadata":{"promptTokenCount":100,"cachedContentTokenCount":30,)"
         R"("candidatesTokenCount":20,"thoughtsTokenCount":4}})",
         Counts{70, 20, 30, 4}},
        {R"({"usageMetadata":{"promptTokenCount":10,"cachedContentTokenCount":30}})",
         Counts{0, 0, 30, 0}},
        {R"({"tokens":{"input":10,"promptTokenCount":100,"cached":30}})", Counts{70, 0, 30, 0}},
        // Every spelling present is added; numeric strings count.
        {R"({"tokens":{"input":10,"input_tokens":5}})", Counts{15, 0, 0, 0}},
        {R"({"tokens":{"inputTokens":1,"prompt":2,"output":1,"outputTokens":2,"output_tokens":4,)"
         R"("candidates":8,"candidatesTokenCount":16,"cached":1,"cache":2,)"
         R"("cachedContentTokenCount":4,"cache_read":8,"cacheRead":16,"thoughts":1,)"
         R"("reasoning":2,"thoughtsTokenCount":4}})",
         Counts{3, 31, 31, 7}},
        {R"({"tokens":{"input":"120","output":"8"}})", Counts{120, 8, 0, 0}},
        // Metadata first, then "tokens", "usage", "tokenUsage": the first with counts wins.
        {R"({"usageMetadata":{"promptTokenCount":0},"tokens":{"input":5}})", Counts{5, 0, 0, 0}},
        {R"({"usageMetadata":7,"tokens":{"input":5}})", Counts{5, 0, 0, 0}},
        {R"({"usageMetadata":{"candidatesTokenCount":2},"tokens":{"input":9}})",
         Counts{0, 2, 0, 0}},
        {R"({"tokens":{"input":1},"usage":{"input":9}})", Counts{1, 0, 0, 0}},
        {R"({"tokens":null,"usage":{"output":3}})", Counts{0, 3, 0, 0}},
        {R"({"tokens":{"input":0},"usage":"n/a","tokenUsage":{"outputTokens":2}})",
         Counts{0, 2, 0, 0}},
        // A total alone is all input; beside real counts it is ignored.
        {R"({"tokens":{"total":42}})", Counts{42, 0, 0, 0}},
        {R"({"tokens":{"output":1,"total":42}})", Counts{0, 1, 0, 0}},
        {R"({"tokens":{"tool":5,"total":0}})", std::nullopt},
        {R"({"content":"no usage at all"})", std::nullopt},
        // Beyond 64 bits, alone or as a sum, spoils the whole message, without a crash.
        {R"({"tokens":{"input":1e300}})", std::nullopt},
        {R"({"tokens":{"input":9e18,"output":9e18}})", std::nullopt},
        {R"({"usageMetadata":{"promptTokenCount":1e300},"tokens":{"input":5}})", std::nullopt},
    };
    for (const auto& [message, expected] : cases)
        EXPECT_EQ(GeminiCLISource::tokenCounts(JSONDocument::parse(message)->root()), expected)
            << message;
}

TEST_F(GeminiTest, EachFixtureGivesExactlyItsRecords) {
    for (const char* fixture : {
             // Before any line names them: the file's name and "gemini"; lines without ids
             // are separate replies. An empty sessionId changes nothing; "modelName" stands in.
             "gemini/running_session_and_model.jsonl",
             // ISO text, startTime, seconds and seconds as text count; no time, 0, before
             // 1970, words and 1e300 do not.
             "gemini/odd_dates.jsonl",
             // Damaged lines drop only themselves: a last line cut off; NUL bytes, a PNG
             // header, a line that is not UTF-8; 1e300 and a sum beyond 64 bits ("120" counts).
             "gemini/cut_mid_line.jsonl",
             "gemini/binary_junk.jsonl",
             "gemini/count_out_of_range.jsonl",
             // The older document form: replies without ids all count; the document's model
             // stands in for a reply's own; a reply with only "startTime" has no date in this
             // form; a string is no reply.
             "gemini/legacy_document.json",
             // Without a sessionId the file's name is the session.
             "gemini/document_without_session_id.json",
             // A ".json" file that is no document is read as lines.
             "gemini/lines_in_a_json_file.json",
         })
        EXPECT_EQ(describe(GeminiCLISource::parseFile(testing::fixture(fixture))),
                  testing::expectedRecords(fixture))
            << fixture;
}

TEST_F(GeminiTest, TheLastWriteOfAMessageWinsInThePlaceOfTheFirst) {
    write(".gemini/tmp/9f2c4e7d1a/.project_root", "  /home/ana/src/app \n");
    auto file = copyFixture("gemini/rewritten_message_ids.jsonl",
                            ".gemini/tmp/9f2c4e7d1a/chats/session-2026-04-02T08-00-3bac0f3e.jsonl");
    // g1 is written with no tokens, then 10, then 310 output tokens, around g2.
    auto records = GeminiCLISource::parseFile(file);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(describe(records[0]), kPro + "/home/ana/src/app|" + kSession +
                                        " @2026-04-02T08:00:05Z session calls=1 in=12800 out=310 "
                                        "cr=4000 cw=0 rs=22");
    EXPECT_EQ(describe(records[1]), kFlash + "/home/ana/src/app|" + kSession +
                                        " @2026-04-02T08:01:00Z session calls=1 in=500 out=40 "
                                        "cr=100 cw=0 rs=0");
}

TEST_F(GeminiTest, FilesAreChatsOfBothHomesWithoutCheckpoints) {
    const fs::path second = root / "elsewhere";
    testing::ScopedEnv geminiHome("GEMINI_CLI_HOME", second.string());
    for (const char* name : {"session-1.json", "session-2.jsonl", "other.jsonl",
                             "checkpoint-1.json", "checkpoint-2.jsonl", "notes.json"})
        write(fs::path(".gemini/tmp/p1/chats") / name, "{}");
    write(".gemini/tmp/p1/session-4.json", "{}");  // not below "chats"
    write(".gemini/chats/session-5.jsonl", "{}");  // not below "tmp"
    testing::writeText(second / ".gemini/tmp/p2/chats/session-6.jsonl", "{}");

    std::vector<std::string> names;
    for (const std::string& file : GeminiCLISource::files())
        names.push_back(fs::path(file).filename().string());
    ASSERT_EQ(names.size(), 4u);
    std::sort(names.begin(), names.begin() + 2);  // the file system's order within a suffix
    EXPECT_EQ(names,
              (Lines{"other.jsonl", "session-2.jsonl", "session-1.json", "session-6.jsonl"}));

    ScanCache cache;
    GeminiCLISource().scan(cache);
    EXPECT_EQ(cache.files.size(), 4u);
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

}  // namespace
}  // namespace usagekit
