#include "sources/opencode.h"

#include "core/paths.h"
#include "core/scan_cache.h"
#include "core/text.h"
#include "sources/sqlite_read.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>

namespace usagekit {
namespace {

namespace fs = std::filesystem;
using testing::describe;

// A database as OpenCode keeps one: WAL mode, and the connection stays open, so that rows
// written so far live in the write-ahead log as they do while OpenCode runs.
class OpenCodeDatabase {
  public:
    explicit OpenCodeDatabase(const fs::path& path, bool withMessages = true) {
        fs::create_directories(path.parent_path());
        EXPECT_EQ(sqlite3_open(path.c_str(), &m_db), SQLITE_OK);
        exec("PRAGMA journal_mode=WAL");
        exec("CREATE TABLE session (id TEXT PRIMARY KEY, data TEXT NOT NULL)");
        if (withMessages)
            exec(
                "CREATE TABLE message (id TEXT PRIMARY KEY, session_id TEXT NOT NULL, "
                "time_created INTEGER NOT NULL, time_updated INTEGER NOT NULL, "
                "data TEXT NOT NULL)");
    }
    ~OpenCodeDatabase() { sqlite3_close(m_db); }

    void add(const std::string& id, const std::string& session, const std::string& data) {
        sqlite3_stmt* statement = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(m_db,
                                     "INSERT INTO message VALUES (?, ?, 1760000000000, "
                                     "1760000000000, ?)",
                                     -1, &statement, nullptr),
                  SQLITE_OK);
        sqlite3_bind_text(statement, 1, id.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(statement, 2, session.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(statement, 3, data.c_str(), -1, SQLITE_TRANSIENT);
        EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE);
        sqlite3_finalize(statement);
    }

  private:
    void exec(const char* sql) {
        EXPECT_EQ(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    }
    sqlite3* m_db = nullptr;
};

// An assistant message's data, with the parts a test varies.
std::string assistant(const std::string& completed, const std::string& model,
                      const std::string& cost, const std::string& tokens,
                      const std::string& path = R"({"cwd":"/w/app","root":"/w/app"})") {
    return R"({"role":"assistant","time":{"created":1760000000000)" +
           (completed.empty() ? "" : ",\"completed\":" + completed) + "}," + model +
           R"(,"mode":"build","path":)" + path + R"(,"cost":)" + cost + R"(,"tokens":)" + tokens +
           R"(,"finish":"stop"})";
}

std::optional<UsageRecord> record(const std::string& row) {
    auto document = JSONDocument::parse(row);
    EXPECT_TRUE(document) << row;
    return OpenCodeSource::record(document->root());
}

class OpenCodeTest : public testing::TempHome {
  protected:
    testing::ScopedTimeZone m_utc{"UTC0"};
};

TEST(OpenCodeQuery, IsTheFifteenLinesExactly) {
    const std::string_view query = OpenCodeSource::kQuery;
    EXPECT_EQ(query.size(), 706u);
    EXPECT_EQ(std::count(query.begin(), query.end(), '\n'), 14);
    EXPECT_TRUE(
        query.starts_with("SELECT id,\n       json_extract(data, '$.time.completed') AS at,"));
    EXPECT_TRUE(query.ends_with("\n  AND COALESCE(json_extract(data, '$.tokens.total'), 0) > 0"));
}

TEST_F(OpenCodeTest, ScanReadsAssistantMessagesWithTokensFromALiveDatabase) {
    OpenCodeDatabase db(TallyPaths::openCodeDatabase());
    const std::string sonnet = R"("modelID":"claude-sonnet-4-6","providerID":"anthropic")";
    // Completed in milliseconds, and in seconds; the second's cost of 0 means unknown.
    db.add("msg_a1", "ses_1",
           assistant("1760000004200", sonnet, "0.0123",
                     R"({"total":15400,"input":1200,"output":300,"reasoning":0,)"
                     R"("cache":{"read":13800,"write":100}})"));
    db.add("msg_a2", "ses_1",
           assistant("1760000100", sonnet, "0",
                     R"({"total":500,"input":400,"output":100,"reasoning":0,)"
                     R"("cache":{"read":0,"write":0}})"));
    // A user's message, and a reply that used no tokens (though it names some).
    db.add("msg_u1", "ses_1",
           R"({"role":"user","time":{"created":1760000000000},"agent":"build",)"
           R"("model":{"providerID":"anthropic","modelID":"claude-sonnet-4-6"}})");
    db.add("msg_a3", "ses_1",
           assistant(
               "1760000200000", sonnet, "0",
               R"({"total":0,"input":50,"output":0,"reasoning":0,"cache":{"read":0,"write":0}})"));
    // Only reasoning tokens: kept, since OpenCode's total says it used some.
    db.add("msg_a4", "ses_2",
           assistant(
               "1760000300000", R"("modelID":"gpt-5","providerID":"")", "0",
               R"({"total":10,"input":0,"output":0,"reasoning":10,"cache":{"read":0,"write":0}})",
               "null"));
    // A count no log can hold, and a reply still being written (no completion time).
    db.add(
        "msg_a5", "ses_2",
        assistant(
            "1760000400000", R"("modelID":"gpt-5","providerID":"openai")", "0",
            R"({"total":1e300,"input":1e300,"output":1,"reasoning":0,"cache":{"read":0,"write":0}})"));
    db.add("msg_a6", "ses_3",
           assistant(
               "", sonnet, "0",
               R"({"total":5,"input":5,"output":0,"reasoning":0,"cache":{"read":0,"write":0}})"));

    const fs::path wal = TallyPaths::openCodeDatabase().string() + "-wal";
    ASSERT_TRUE(fs::exists(wal) && fs::file_size(wal) > 0);

    ScanCache cache;
    auto records = OpenCodeSource().scan(cache);
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  "opencode|anthropic/claude-sonnet-4-6|1759968000.0|/w/app|ses_1 "
                  "@2025-10-09T08:55:00Z session calls=2 in=1600 out=400 cr=13800 cw=100 rs=0 "
                  "cost=0.0123",
                  "opencode|gpt-5|1759968000.0||ses_2 @2025-10-09T08:58:20Z session calls=1 "
                  "in=0 out=0 cr=0 cw=0 rs=10",
              }));
    EXPECT_TRUE(cache.files.empty());
}

TEST_F(OpenCodeTest, WithoutADatabaseThereIsNothingAndNothingIsCreated) {
    ScanCache cache;
    EXPECT_TRUE(OpenCodeSource().scan(cache).empty());
    EXPECT_FALSE(fs::exists(TallyPaths::openCodeDatabase()));
    EXPECT_FALSE(fs::exists(TallyPaths::openCodeDatabase().parent_path()));
}

TEST_F(OpenCodeTest, AMissingTableFailsTheSourceWithSQLitesWords) {
    OpenCodeDatabase db(TallyPaths::openCodeDatabase(), false);
    ScanCache cache;
    try {
        OpenCodeSource().scan(cache);
        FAIL() << "the scan should have failed";
    } catch (const SQLiteRead::Failure& failure) {
        EXPECT_EQ(std::string(failure.what()), "no such table: message");
        EXPECT_LE(Text::characterCount(failure.what()), 200u);
    }
}

TEST(OpenCodeRecord, TimeIsSecondsOrMilliseconds) {
    auto inMilliseconds = record(R"({"id":"m","at":1718000000000,"input":1})");
    auto inSeconds = record(R"({"id":"m","at":1718000000,"input":1})");
    ASSERT_TRUE(inMilliseconds && inSeconds);
    EXPECT_EQ(inMilliseconds->date.secondsSince1970, 1718000000.0);
    EXPECT_EQ(inSeconds->date.secondsSince1970, 1718000000.0);
    EXPECT_FALSE(record(R"({"id":"m","input":1})"));
    EXPECT_FALSE(record(R"({"id":"m","at":null,"input":1})"));
    EXPECT_FALSE(record(R"({"id":"m","at":0,"input":1})"));
    EXPECT_FALSE(record(R"({"id":"m","at":-1718000000,"input":1})"));
    EXPECT_FALSE(record(R"([1718000000])"));
}

TEST(OpenCodeRecord, ModelIsPrefixedByTheProviderThatServedIt) {
    EXPECT_EQ(record(R"({"at":1718000000,"via":"openrouter","model":"gpt-5"})")->model,
              "openrouter/gpt-5");
    EXPECT_EQ(record(R"({"at":1718000000,"via":"","model":"gpt-5"})")->model, "gpt-5");
    EXPECT_EQ(record(R"({"at":1718000000,"via":null,"model":null})")->model, "opencode");
    EXPECT_EQ(record(R"({"at":1718000000,"via":"anthropic"})")->model, "anthropic/opencode");
}

TEST(OpenCodeRecord, FieldsOfOneRow) {
    auto r = record(R"({"id":"msg_1","at":1718000000,"model":"m","cost":0.25,"input":"12",)"
                    R"("output":3.9,"reasoning":2,"cacheRead":40,"cacheWrite":5,"cwd":"/w/app",)"
                    R"("session":"ses_1"})");
    ASSERT_TRUE(r);
    EXPECT_EQ(testing::describe(*r),
              "msg_1 @2024-06-10T06:13:20Z session calls=1 in=12 out=3 cr=40 cw=5 rs=2 cost=0.25");
    EXPECT_EQ(r->provider, Provider::openCode);
    EXPECT_EQ(r->project, "/w/app");
    EXPECT_EQ(r->session, "ses_1");
    // Without an id each row gets its own fresh one; a cost of 0 leaves pricing to us.
    auto a = record(R"({"at":1718000000,"cost":0})");
    auto b = record(R"({"at":1718000000,"cost":"0"})");
    EXPECT_EQ(a->id.size(), 36u);
    EXPECT_NE(a->id, b->id);
    EXPECT_FALSE(a->reportedCostUSD);
    EXPECT_FALSE(b->reportedCostUSD);
    EXPECT_FALSE(a->project);
    EXPECT_FALSE(a->session);
}

}  // namespace
}  // namespace usagekit
