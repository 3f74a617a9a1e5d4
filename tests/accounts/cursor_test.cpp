#include "accounts/cursor.h"
#include "accounts/http.h"
#include "core/paths.h"

#include "support/fake_provider.h"

#include <sqlite3.h>

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::ReceivedRequest;
using testing::Reply;

constexpr const char* kPath = "/aiserver.v1.DashboardService/GetFilteredUsageEvents";
// 2026-10-20T01:35:34.850Z
constexpr Date kNow{1760924134.850};

class CursorTest : public testing::ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        endpoint("CURSOR");
    }

    // Cursor's own settings database: a key/value ItemTable whose values are BLOBs.
    void signIn(const std::optional<std::string>& token) {
        auto path = TallyPaths::cursorDatabase();
        std::filesystem::create_directories(path.parent_path());
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
        exec(db,
             "CREATE TABLE IF NOT EXISTS ItemTable (key TEXT UNIQUE ON CONFLICT REPLACE, value "
             "BLOB);");
        exec(db, "INSERT INTO ItemTable VALUES ('cursorAuth/cachedEmail', 'ana@example.com');");
        exec(db, "DELETE FROM ItemTable WHERE key = 'cursorAuth/accessToken';");
        if (token) {
            sqlite3_stmt* insert = nullptr;
            sqlite3_prepare_v2(db, "INSERT INTO ItemTable VALUES ('cursorAuth/accessToken', ?);",
                               -1, &insert, nullptr);
            sqlite3_bind_text(insert, 1, token->c_str(), -1, SQLITE_TRANSIENT);
            EXPECT_EQ(sqlite3_step(insert), SQLITE_DONE);
            sqlite3_finalize(insert);
        }
        sqlite3_close(db);
    }

    static void exec(sqlite3* db, const char* sql) {
        EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    }

    static int pageOf(const ReceivedRequest& request) {
        auto body = JSONDocument::parse(request.body);
        return body ? static_cast<int>(body->root()["page"].integer()) : 0;
    }
};

// `count` ordinary events of one conversation, one second apart.
std::string events(int count, int64_t firstMillis) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        if (i) out += ",";
        out +=
            R"({"timestamp":")" + std::to_string(firstMillis + i * 1000) +
            R"(","model":"claude-4.5-sonnet","kind":"USAGE_EVENT_KIND_INCLUDED_IN_PRO","conversationId":"c1","tokenUsage":{"inputTokens":10,"outputTokens":1}})";
    }
    return out;
}

TEST_F(CursorTest, AsksForTheLastYearWithTheStoredToken) {
    signIn("eyJhbGciOiJIUzI1NiJ9.test-token");
    server->on(kPath, Reply{200, R"({"totalUsageEventsCount":"0","usageEventsDisplay":[]})"});
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());
    ASSERT_EQ(server->requests().size(), 1u);
    auto seen = server->requests()[0];
    EXPECT_EQ(seen.method, "POST");
    EXPECT_EQ(seen.target, kPath);
    EXPECT_EQ(seen.body,
              R"({"page":1,"pageSize":100,"startDate":"1729388134850","endDate":"1760924134850"})");
    EXPECT_TRUE(seen.header("Authorization") == "Bearer eyJhbGciOiJIUzI1NiJ9.test-token");
    EXPECT_EQ(seen.header("Connect-Protocol-Version"), "1");
    EXPECT_EQ(seen.header("Content-Type"), "application/json");
}

TEST_F(CursorTest, NoDatabaseOrNoTokenSendsNothing) {
    EXPECT_EQ(CursorSource::accessToken(TallyPaths::cursorDatabase()), std::nullopt);
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());
    signIn(std::nullopt);
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());
    signIn("");
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());
    EXPECT_TRUE(server->requests().empty());
    // A file that is not a database is no sign-in either.
    testing::writeText(TallyPaths::cursorDatabase(), "not a database");
    EXPECT_EQ(CursorSource::accessToken(TallyPaths::cursorDatabase()), std::nullopt);
}

TEST_F(CursorTest, EventsBecomeIncludedOrOnDemandRecords) {
    auto answer = JSONDocument::parse(R"({"totalUsageEventsCount":"6","usageEventsDisplay":[
{"timestamp":"1760921734850","model":"claude-4.5-sonnet","kind":"USAGE_EVENT_KIND_USAGE_BASED","maxMode":true,"isTokenBasedCall":true,"tokenUsage":{"inputTokens":3438,"outputTokens":76,"cacheWriteTokens":5,"cacheReadTokens":24214,"totalCents":11.8},"owningUser":"123","conversationId":"conv-1"},
{"timestamp":1760921700000,"model":"gpt-5","kind":"USAGE_EVENT_KIND_INCLUDED_IN_PRO","chargedCents":12,"tokenUsage":{"totalCents":99}},
{"timestamp":"1760921600000","kind":"SOMETHING_USAGE_BASED_LATER","tokenUsage":{"inputTokens":"40"}},
{"timestamp":"0","model":"gpt-5","tokenUsage":{"inputTokens":40}},
{"timestamp":"1760921500000","model":"gpt-5","tokenUsage":{"inputTokens":0},"chargedCents":0},
{"timestamp":"1760921400000","model":"gpt-5","tokenUsage":{"inputTokens":1e300}},
"junk"]})");
    auto records = CursorSource::records(answer->root());
    ASSERT_EQ(records.size(), 3u);

    const UsageRecord& onDemand = records[0];
    EXPECT_EQ(onDemand.id, "conv-1-1760921734850-claude-4.5-sonnet");
    EXPECT_DOUBLE_EQ(onDemand.date.secondsSince1970, 1760921734.850);
    EXPECT_EQ(onDemand.provider, Provider::cursorOnDemand);
    EXPECT_EQ(onDemand.kind, "on-demand");
    EXPECT_EQ(onDemand.session, "conv-1");
    EXPECT_EQ(onDemand.project, std::nullopt);
    EXPECT_EQ(onDemand.calls, 1);
    EXPECT_EQ(onDemand.input, 3438);
    EXPECT_EQ(onDemand.output, 76);
    EXPECT_EQ(onDemand.cacheRead, 24214);
    EXPECT_EQ(onDemand.cacheWrite, 5);
    EXPECT_DOUBLE_EQ(*onDemand.reportedCostUSD, 0.118);

    // No tokens but a charge: kept; chargedCents wins over totalCents.
    const UsageRecord& charged = records[1];
    EXPECT_EQ(charged.provider, Provider::cursorAgent);
    EXPECT_EQ(charged.kind, "included");
    EXPECT_EQ(charged.id, "cursor-1760921700000-gpt-5");
    EXPECT_EQ(charged.session, std::nullopt);
    EXPECT_EQ(charged.input, 0);
    EXPECT_DOUBLE_EQ(*charged.reportedCostUSD, 0.12);

    // "USAGE_BASED" anywhere in the kind; no cents leaves the cost to pricing.
    EXPECT_EQ(records[2].provider, Provider::cursorOnDemand);
    EXPECT_EQ(records[2].model, "cursor");
    EXPECT_EQ(records[2].input, 40);
    EXPECT_EQ(records[2].reportedCostUSD, std::nullopt);
}

TEST_F(CursorTest, PagesUntilTheTotalIsCollected) {
    signIn("token");
    server->on(kPath, [](const ReceivedRequest& request) {
        const int page = pageOf(request);
        const int count = page < 3 ? 100 : 50;
        return Reply{200, R"({"totalUsageEventsCount":"250","usageEventsDisplay":[)" +
                              events(count, 1760000000000 + page * 1000000) + "]}"};
    });
    auto records = CursorSource::fetch(kNow);
    auto seen = server->requests();
    ASSERT_EQ(seen.size(), 3u);
    for (int page = 1; page <= 3; ++page)
        EXPECT_EQ(pageOf(seen[page - 1]), page);
    // Folded: one conversation, one model, one day.
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].calls, 250);
    EXPECT_EQ(records[0].input, 2500);
}

TEST_F(CursorTest, PagingStopsAtPage40WhateverTheServiceClaims) {
    signIn("token");
    server->on(kPath, [](const ReceivedRequest& request) {
        return Reply{200, R"({"totalUsageEventsCount":10000,"usageEventsDisplay":[)" +
                              events(100, 1760000000000 + pageOf(request) * 1000000) + "]}"};
    });
    auto records = CursorSource::fetch(kNow);
    EXPECT_EQ(server->requests().size(), 40u);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].calls, 4000);

    // Without a total the paging goes on the same way.
    server->on(kPath, [](const ReceivedRequest& request) {
        return Reply{200, R"({"usageEventsDisplay":[)" +
                              events(1, 1760000000000 + pageOf(request) * 1000) + "]}"};
    });
    CursorSource::fetch(kNow);
    EXPECT_EQ(server->requests().size(), 80u);
}

TEST_F(CursorTest, AnEmptyPageEndsThePaging) {
    signIn("token");
    server->on(kPath, [](const ReceivedRequest& request) {
        const int page = pageOf(request);
        return Reply{200, R"({"totalUsageEventsCount":500,"usageEventsDisplay":[)" +
                              (page == 1 ? events(100, 1760000000000) : "") + "]}"};
    });
    EXPECT_EQ(CursorSource::fetch(kNow).size(), 1u);
    EXPECT_EQ(server->requests().size(), 2u);
}

TEST_F(CursorTest, ServiceFailuresReachTheCaller) {
    signIn("token");
    server->on(kPath, Reply{401, R"({"code":"unauthenticated"})"});
    EXPECT_THROW(CursorSource::fetch(kNow), HTTP::Err);
    server->on(kPath, Reply{200, "{}", "application/json", 0, true});
    EXPECT_THROW(CursorSource::fetch(kNow), HTTP::TransportError);
    // An answer without events is no records, not an error.
    server->on(kPath, Reply{200, "<html>login</html>", "text/html"});
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());
}

}  // namespace
}  // namespace usagekit
