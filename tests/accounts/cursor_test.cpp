#include "accounts/cursor.h"
#include "accounts/http.h"
#include "core/paths.h"

#include "support/fake_provider.h"

#include <sqlite3.h>

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::lines;
using testing::ReceivedRequest;
using testing::Reply;
using Lines = std::vector<std::string>;

constexpr const char* kPath = "/aiserver.v1.DashboardService/GetFilteredUsageEvents";
constexpr Date kNow{1760924134.850};  // 2025-10-20T01:35:34.850Z

class CursorTest : public testing::ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        endpoint("CURSOR");
    }
    testing::ScopedTimeZone zone{"UTC0"};

    // Cursor's own settings database: a key/value ItemTable whose values are BLOBs.
    static void signIn(const std::string& token) {
        auto path = TallyPaths::cursorDatabase();
        std::filesystem::create_directories(path.parent_path());
        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        const std::string sql =
            "CREATE TABLE IF NOT EXISTS ItemTable (key TEXT UNIQUE ON CONFLICT REPLACE, value "
            "BLOB); INSERT INTO ItemTable VALUES ('cursorAuth/cachedEmail', 'ana@example.com'); "
            "INSERT INTO ItemTable VALUES ('cursorAuth/accessToken', '" +
            token + "');";
        EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    }

    static int pageOf(const ReceivedRequest& request) {
        auto body = JSONDocument::parse(request.body);
        return body ? static_cast<int>(body->root()["page"].integer()) : 0;
    }

    // Pages of `size` events of one conversation and one day, claiming `total` events.
    void answerPages(const std::string& total, int size, int lastPage) {
        server->on(kPath, [=](const ReceivedRequest& request) {
            const int page = pageOf(request);
            std::string events;
            for (int i = 0; page <= lastPage && i < size; ++i)
                events +=
                    std::string(events.empty() ? "" : ",") + R"({"timestamp":")" +
                    std::to_string(1760900000000 + page * 100000 + i) +
                    R"(","model":"gpt-5","conversationId":"c1","tokenUsage":{"inputTokens":10}})";
            return Reply{200, "{" + total + R"("usageEventsDisplay":[)" + events + "]}"};
        });
    }
};

TEST_F(CursorTest, AsksForTheLastYearWithTheStoredToken) {
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());  // no database: nothing sent
    signIn("");
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());  // no token: nothing sent
    EXPECT_TRUE(server->requests().empty());

    signIn("eyJhbGciOiJIUzI1NiJ9.test-token");
    server->on(kPath, Reply{200, R"({"totalUsageEventsCount":"0","usageEventsDisplay":[]})"});
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());
    auto seen = server->requests().at(0);
    EXPECT_EQ(seen.method + " " + seen.target, std::string("POST ") + kPath);
    EXPECT_EQ(seen.body,
              R"({"page":1,"pageSize":100,"startDate":"1729388134850","endDate":"1760924134850"})");
    EXPECT_TRUE(seen.header("Authorization") == "Bearer eyJhbGciOiJIUzI1NiJ9.test-token");
    EXPECT_EQ(seen.header("Connect-Protocol-Version"), "1");
    EXPECT_EQ(seen.header("Content-Type"), "application/json");
}

TEST_F(CursorTest, EventsBecomeIncludedOrOnDemandRecords) {
    auto answer = JSONDocument::parse(R"({"totalUsageEventsCount":"6","usageEventsDisplay":[
{"timestamp":"1760921734850","model":"claude-4.5-sonnet","kind":"USAGE_EVENT_KIND_USAGE_BASED","maxMode":true,"isTokenBasedCall":true,"tokenUsage":{"inputTokens":3438,"outputTokens":76,"cacheWriteTokens":5,"cacheReadTokens":24214,"totalCents":12.5},"owningUser":"123","conversationId":"conv-1"},
{"timestamp":1760921700000,"model":"gpt-5","kind":"USAGE_EVENT_KIND_INCLUDED_IN_PRO","chargedCents":12,"tokenUsage":{"totalCents":99}},
{"timestamp":"1760921600000","kind":"X_USAGE_BASED_Y","tokenUsage":{"inputTokens":"40"}},
{"timestamp":"0","model":"gpt-5","tokenUsage":{"inputTokens":40}},
{"timestamp":"1760921500000","model":"gpt-5","tokenUsage":{"inputTokens":0},"chargedCents":0},
{"timestamp":"1760921400000","model":"gpt-5","tokenUsage":{"inputTokens":1e300}},
"junk"]})");
    // A charge without tokens is kept (chargedCents before totalCents); "USAGE_BASED"
    // anywhere in the kind bills on demand; no cents leaves the cost to pricing.
    EXPECT_EQ(lines(CursorSource::records(answer->root())),
              (Lines{"conv-1-1760921734850-claude-4.5-sonnet @2025-10-20T00:55:34Z on-demand "
                     "calls=1 in=3438 out=76 cr=24214 cw=5 rs=0 cost=0.125 cursor-on-demand p=- "
                     "s=conv-1",
                     "cursor-1760921700000-gpt-5 @2025-10-20T00:55:00Z included calls=1 in=0 out=0 "
                     "cr=0 cw=0 rs=0 cost=0.12 cursor-agent p=- s=-",
                     "cursor-1760921600000-cursor @2025-10-20T00:53:20Z on-demand calls=1 in=40 "
                     "out=0 cr=0 cw=0 rs=0 cursor-on-demand p=- s=-"}));
}

TEST_F(CursorTest, PagingStopsAtTheTotalAnEmptyPageOrPage40) {
    signIn("token");
    answerPages(R"("totalUsageEventsCount":"250",)", 100, 99);
    auto records = CursorSource::fetch(kNow);
    EXPECT_EQ(server->requests().size(), 3u);
    ASSERT_EQ(records.size(), 1u);  // folded: one conversation, model and day
    EXPECT_EQ(records[0].calls, 300);

    answerPages(R"("totalUsageEventsCount":10000,)", 100, 99);
    EXPECT_EQ(CursorSource::fetch(kNow).at(0).calls, 4000);
    EXPECT_EQ(server->requests().size(), 43u);
    answerPages("", 1, 99);  // no total: on to page 40 as well
    CursorSource::fetch(kNow);
    EXPECT_EQ(server->requests().size(), 83u);
    answerPages(R"("totalUsageEventsCount":500,)", 100, 1);  // page 2 is empty
    CursorSource::fetch(kNow);
    EXPECT_EQ(server->requests().size(), 85u);
}

TEST_F(CursorTest, ServiceFailuresReachTheCaller) {
    signIn("token");
    server->on(kPath, Reply{401, R"({"code":"unauthenticated"})"});
    EXPECT_THROW(CursorSource::fetch(kNow), HTTP::Err);
    server->on(kPath, Reply{200, "{}", "application/json", 0, true});
    EXPECT_THROW(CursorSource::fetch(kNow), HTTP::TransportError);
    server->on(kPath, Reply{200, "<html>login</html>", "text/html"});
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());
}

}  // namespace
}  // namespace usagekit
