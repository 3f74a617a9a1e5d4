#include "sources/opencode.h"

#include "core/paths.h"
#include "core/scan_cache.h"
#include "sources/sqlite_read.h"
#include "support/record_text.h"
#include "support/sqlite_file.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using testing::describe;

// OpenCode's tables, in WAL mode as OpenCode keeps them.
constexpr const char* kSchema =
    "PRAGMA journal_mode=WAL; CREATE TABLE session (id TEXT PRIMARY KEY, data TEXT);"
    "CREATE TABLE message (id TEXT PRIMARY KEY, session_id TEXT NOT NULL, time_created INTEGER "
    "NOT NULL, time_updated INTEGER NOT NULL, data TEXT NOT NULL);";

std::optional<UsageRecord> record(const std::string& row) {
    return OpenCodeSource::record(JSONDocument::parse(row)->root());
}

using OpenCodeTest = testing::UTCHome;

TEST_F(OpenCodeTest, ATimeOrCostWrittenAsJSONTextIsNoTimeOrCostButCountsMayBe) {
    const std::string rows = R"(
        INSERT INTO message VALUES ('a', 's', 0, 0, '{"role":"assistant",
          "time":{"completed":"1760000000000"},"tokens":{"input":5,"total":5}}');
        INSERT INTO message VALUES ('b', 's', 0, 0, '{"role":"assistant","modelID":"m",
          "time":{"completed":1760000000000},"cost":"2.5","tokens":{"input":"7","total":7}}');)";
    testing::SQLiteFile db(TallyPaths::openCodeDatabase(), std::string(kSchema) + rows);
    ScanCache cache;
    EXPECT_EQ(describe(OpenCodeSource().scan(cache).all()),
              std::vector<std::string>{"opencode|m|1759968000.0||s @2025-10-09T08:53:20Z session "
                                       "calls=1 in=7 out=0 cr=0 cw=0 rs=0"});
}

TEST_F(OpenCodeTest, ScanReadsAssistantMessagesWithTokensFromALiveDatabase) {
    // Each line of the fixture is one row: {"id", "session_id", "data"}.
    std::string rows = testing::readText(testing::fixture("opencode/message_rows.jsonl"));
    rows.pop_back();
    std::replace(rows.begin(), rows.end(), '\n', ',');
    // The connection stays open, so the rows live in the write-ahead log, as they do while
    // OpenCode runs.
    testing::SQLiteFile db(TallyPaths::openCodeDatabase(),
                           std::string(kSchema) +
                               "INSERT INTO message SELECT value->>'id', value->>'session_id', 0, "
                               "0, value->'data' FROM json_each('[" +
                               rows + "]');");
    const fs::path wal = TallyPaths::openCodeDatabase().string() + "-wal";
    ASSERT_TRUE(fs::exists(wal) && fs::file_size(wal) > 0);

    // Completed in ms and in s, fold into one; the cost of 0 leaves the other's standing.
    // Out: a user's message, a reply with total 0, one still being written (no completion
    // time) and one of 1e300 tokens. In: a reply of reasoning tokens only, no path.
    ScanCache cache;
    EXPECT_EQ(describe(OpenCodeSource().scan(cache).all()),
              (std::vector<std::string>{
                  "opencode|anthropic/claude-sonnet-4-6|1759968000.0|/w/app|ses_1 "
                  "@2025-10-09T08:55:00Z session calls=2 in=1600 out=400 cr=13800 cw=100 rs=0 "
                  "cost=0.0123",
                  "opencode|gpt-5|1759968000.0||ses_2 @2025-10-09T08:58:20Z session calls=1 in=0 "
                  "out=0 cr=0 cw=0 rs=10",
              }));
    EXPECT_EQ(cache.files.size(), 2u);  // the database and its write-ahead log
}

TEST_F(OpenCodeTest, AnUnchangedDatabaseIsNotQueriedAgainAndEveryWriteIsSeen) {
    const std::string row = R"(INSERT INTO message VALUES ('msg_%', 'ses_1', 0, 0,
        '{"role":"assistant","time":{"completed":1759999000000},"modelID":"m",
          "tokens":{"input":%,"output":1,"total":1}}');)";
    auto insert = [&](const std::string& id) {
        std::string sql = row;
        for (size_t at; (at = sql.find('%')) != std::string::npos;)
            sql.replace(at, 1, id);
        return sql;
    };
    testing::SQLiteFile db(TallyPaths::openCodeDatabase(), std::string(kSchema) + insert("1"));
    const std::string path = TallyPaths::openCodeDatabase().string();
    auto inputs = [](const std::vector<UsageRecord>& records) {
        return records.empty() ? int64_t{-1} : records[0].input;
    };
    ScanCache cache;
    ASSERT_EQ(inputs(OpenCodeSource().scan(cache).all()), 1);

    // Unchanged: the cached records, which the query would not give.
    cache.files.at(path).records[0].input = 99;
    EXPECT_EQ(inputs(OpenCodeSource().scan(cache).all()), 99);

    // A write lands in the write-ahead log, and a checkpoint moves it into the database.
    db.exec(insert("2"));
    EXPECT_EQ(inputs(OpenCodeSource().scan(cache).all()), 3);
    db.exec("PRAGMA wal_checkpoint(TRUNCATE);");
    cache.files.at(path).records.clear();
    EXPECT_EQ(inputs(OpenCodeSource().scan(cache).all()), 3);

    // Pages rewritten in place keep the size; a time off by less than half a second, which
    // would pass for an unchanged log, is still a change.
    cache.files.at(path).records.clear();
    cache.files.at(path).modified += 0.25;
    EXPECT_EQ(inputs(OpenCodeSource().scan(cache).all()), 3);
}

TEST_F(OpenCodeTest, NoDatabaseIsNothingAndNoTableIsSQLitesFailure) {
    ScanCache cache;
    EXPECT_TRUE(OpenCodeSource().scan(cache).empty());
    EXPECT_FALSE(fs::exists(TallyPaths::openCodeDatabase().parent_path()));

    testing::SQLiteFile db(TallyPaths::openCodeDatabase(), "CREATE TABLE session (id TEXT);");
    try {
        OpenCodeSource().scan(cache);
        ADD_FAILURE() << "the scan should have failed";
    } catch (const SQLiteRead::Failure& failure) {
        EXPECT_STREQ(failure.what(), "no such table: message");
    }
}

TEST(OpenCodeRecord, FieldsOfOneRow) {
    auto r =
        record(R"({"id":"msg_1","at":1718000000000,"model":"m","via":"openrouter","cost":0.25,)"
               R"("input":"12","output":3.9,"reasoning":2,"cacheRead":40,"cacheWrite":5,)"
               R"("cwd":"/w/app","session":"ses_1"})");
    ASSERT_TRUE(r);
    EXPECT_EQ(describe(*r),
              "msg_1 @2024-06-10T06:13:20Z session calls=1 in=12 out=3 cr=40 cw=5 rs=2 cost=0.25");
    EXPECT_EQ(r->provider, Provider::openCode);
    EXPECT_EQ(r->model, "openrouter/m");
    EXPECT_EQ(r->project, "/w/app");
    EXPECT_EQ(r->session, "ses_1");
    EXPECT_EQ(record(R"({"at":1718000000})")->date, r->date);  // seconds, not milliseconds

    // Without an id each row gets a fresh one; a cost of 0 leaves pricing to us.
    auto a = record(R"({"at":1718000000,"via":"","model":"gpt-5","cost":0})");
    auto b = record(R"({"at":1718000000,"via":"anthropic","cost":"0"})");
    EXPECT_EQ(a->id.size(), 36u);
    EXPECT_NE(a->id, b->id);
    EXPECT_EQ(a->model, "gpt-5");
    EXPECT_EQ(b->model, "anthropic/opencode");
    EXPECT_EQ(record(R"({"at":1718000000,"via":null,"model":null})")->model, "opencode");
    EXPECT_FALSE(a->reportedCostUSD || b->reportedCostUSD || a->project || a->session);

    for (const char* noTime : {R"({"input":1})", R"({"at":null})", R"({"at":0})",
                               R"({"at":-1718000000})", R"([1718000000])"})
        EXPECT_FALSE(record(noTime)) << noTime;
}

}  // namespace
}  // namespace usagekit
