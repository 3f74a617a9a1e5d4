// The account readers: what each sends (nothing without a key), how failures reach the
// caller, and the records or balances each makes of an answer.
#include "accounts/anthropic_admin.h"
#include "accounts/balances.h"
#include "accounts/cursor.h"
#include "accounts/http.h"
#include "accounts/openai_usage.h"
#include "core/paths.h"
#include "core/scan.h"

#include "support/fake_provider.h"
#include "support/record_text.h"

#include <sqlite3.h>

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::failureOf;
using testing::Reply;
using Lines = std::vector<std::string>;

constexpr Date kNow{1785575702.850};  // 2026-08-01T09:15:02.850Z
constexpr const char* kCursor = "/aiserver.v1.DashboardService/GetFilteredUsageEvents";

// In answer order: describe(), then provider, project and session ("-" when absent).
Lines shown(const std::vector<UsageRecord>& records) {
    Lines out;
    for (const UsageRecord& r : records)
        out.push_back(testing::describe(r) + " " + r.provider.id + " p=" + r.project.value_or("-") +
                      " s=" + r.session.value_or("-"));
    return out;
}

Lines shown(const std::vector<ProviderBalance>& balances) {
    Lines out;
    for (const ProviderBalance& b : balances)
        out.push_back(b.id() + " " + b.figure() + " " + b.detail);
    return out;
}

template <auto read>
Lines rows(JSON answer) {
    return shown(read(answer));
}

class ReadersTest : public testing::ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        for (const char* name : {"ANTHROPIC", "OPENAI", "XAI", "OPENROUTER", "DEEPSEEK", "CURSOR"})
            endpoint(name);
    }
    testing::ScopedTimeZone zone{"UTC0"};

    // Cursor's own settings database: a key/value ItemTable whose values are BLOBs.
    static void signInToCursor(const std::string& token) {
        auto path = TallyPaths::cursorDatabase();
        std::filesystem::create_directories(path.parent_path());
        const std::string sql =
            "CREATE TABLE ItemTable (key TEXT UNIQUE, value BLOB); INSERT INTO "
            "ItemTable VALUES ('cursorAuth/accessToken', '" +
            token + "');";
        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    }
};

TEST_F(ReadersTest, EachSendsNothingWithoutAKeyThenExactlyItsRequestAndPassesFailuresOn) {
    const struct {
        std::string account;  // "": Cursor's sign-in
        std::function<size_t()> fetch;
        std::string request;  // as FakeProvider::sent() spells it
    } readers[] = {
        {"anthropic-admin-key",
         [] { return AnthropicAdminSource::fetch(90, kNow).size(); },  // at most 31 days back
         "GET /v1/organizations/usage_report/messages?starting_at=2026-07-01T09:15:02Z&bucket_"
         "width=1d&limit=31&group_by%5B%5D=model | anthropic-version: 2023-06-01 | x-api-key: KEY"},
        {"openai-admin-key", [] { return OpenAIUsageSource::fetch(90, kNow).size(); },
         "GET /v1/organization/usage/completions?start_time=1777799702&bucket_width=1d&limit=31&"
         "group_by%5B%5D=model | authorization: Bearer KEY"},
        {"openrouter-management-key", [] { return size_t(OpenRouterSource::credits() ? 1 : 0); },
         "GET /api/v1/credits | authorization: Bearer KEY"},
        {"openrouter-management-key", [] { return OpenRouterSource::fetch().size(); },
         "GET /api/v1/activity | authorization: Bearer KEY"},
        {"deepseek-api-key", [] { return DeepSeekSource::fetch().size(); },
         "GET /user/balance | authorization: Bearer KEY"},
        {"", [] { return CursorSource::fetch(kNow).size(); },
         "POST " + std::string(kCursor) +
             R"( {"page":1,"pageSize":100,"startDate":"1754039702850","endDate":"1785575702850"})"
             " | authorization: Bearer KEY | connect-protocol-version: 1 | content-length: 79 | "
             "content-type: application/json"},
        {"xai-management-key", [] { return XAIBillingSource::fetch().size(); },  // quiet
         "GET /v1/billing/teams/team-42/prepaid/balance | authorization: Bearer KEY\n"
         "GET /v1/billing/teams/team-42/postpaid/invoice/preview | authorization: Bearer KEY"},
    };
    key("xai-team-id", "team-42");
    for (auto& reader : readers)
        EXPECT_EQ(reader.fetch(), 0u);
    EXPECT_TRUE(server->requests().empty());  // no key: nothing sent
    for (auto& reader : readers)
        reader.account.empty() ? signInToCursor("KEY") : key(reader.account, "KEY");

    for (auto& reader : readers) {
        SCOPED_TRACE(reader.request);
        const bool quiet = reader.account == "xai-management-key";
        const size_t before = server->requests().size();
        // No route: the 404 reaches the caller, except from xAI, which swallows failures.
        EXPECT_EQ(failureOf([&] { EXPECT_EQ(reader.fetch(), 0u); }),
                  quiet ? "" : "Err HTTP 404 \u2014 {}");
        EXPECT_EQ(server->sent(before), reader.request);
        auto requests = server->requests();

        auto answerAll = [&](const Reply& reply) {
            for (size_t i = before; i < requests.size(); ++i)
                server->on(requests[i].target.substr(0, requests[i].target.find('?')), reply);
        };
        answerAll(Reply{200, std::string(9, ' '), "", 0, true});
        EXPECT_EQ(failureOf([&] { EXPECT_EQ(reader.fetch(), 0u); }).substr(0, 9),
                  quiet ? "" : "Transport");
        // Not JSON: nothing, except xAI's two figures at $0.00.
        answerAll(Reply{200, "<html>busy</html>", "text/html"});
        EXPECT_EQ(reader.fetch(), quiet ? 2u : 0u);
        // An answer that offers more pages gets no further request; nor did any failure.
        answerAll(Reply{200, R"({"data":[],"has_more":true,"next_page":"p2"})"});
        EXPECT_EQ(reader.fetch(), quiet ? 2u : 0u);
        EXPECT_EQ(server->requests().size(), before + 4 * (requests.size() - before));
    }
}

TEST_F(ReadersTest, NoRequestWithoutAUsableAddressOrSignIn) {
    key("xai-management-key", "KEY");
    EXPECT_TRUE(XAIBillingSource::fetch().empty());  // no team id
    key("xai-team-id", "team 42");                   // makes no URL
    EXPECT_TRUE(XAIBillingSource::fetch().empty());
    key("anthropic-admin-key", "KEY");
    testing::ScopedEnv broken("TALLY_ENDPOINT_ANTHROPIC", "not a url");
    EXPECT_TRUE(AnthropicAdminSource::fetch(30, kNow).empty());
    signInToCursor("");
    EXPECT_TRUE(CursorSource::fetch(kNow).empty());
    EXPECT_TRUE(server->requests().empty());
}

TEST_F(ReadersTest, EachAnswerGivesExactlyTheRowsItCanUseInOrder) {
    // tests/data/accounts/<name>.json is an answer, <name>.expected the lines made of it.
    const std::pair<std::string, std::function<Lines(JSON)>> answers[] = {
        // One model in two workspaces stays two rows; the flat cache_creation_input_tokens
        // is not read; all-zero rows, a 1e30 count and a non-object are dropped alone.
        {"anthropic_results_dropped_alone", rows<AnthropicAdminSource::records>},
        // More cached than input floors at zero; requests alone keep no row; an overflowing
        // difference drops its row; a bucket without a start is dated 1970.
        {"openai_cached_beyond_input", rows<OpenAIUsageSource::records>},
        // A row that only cost money stays; a date with a time or a 1e300 count drops its row.
        {"openrouter_rows_without_tokens", rows<OpenRouterSource::records>},
        // Credits left never go below zero; none bought and none used gives no balance.
        {"openrouter_credits_overspent",
         [](JSON a) {
             Lines out;
             for (JSON one : a.array()) {
                 auto balance = OpenRouterSource::creditsBalance(one);
                 out.push_back(balance ? shown({*balance}).at(0) : "none");
             }
             return out;
         }},
        // "$" for exactly "USD"; an amount that is not wholly a number skips its entry.
        {"deepseek_unusable_amounts", rows<DeepSeekSource::balances>},
        // A charge without tokens stays (chargedCents before totalCents); "USAGE_BASED"
        // anywhere in the kind bills on demand; no cents leaves the cost to pricing.
        {"cursor_events_of_every_kind", rows<CursorSource::records>},
    };
    for (auto& [name, read] : answers) {
        auto path = testing::fixture("accounts/" + name);
        Lines expected;
        Scan::forEachLine(testing::readText(path.replace_extension(".expected")),
                          [&](std::string_view line) { expected.emplace_back(line); });
        EXPECT_EQ(
            read(JSONDocument::parse(testing::readText(path.replace_extension(".json")))->root()),
            expected)
            << name;
    }
    EXPECT_EQ(OpenRouterSource::day("2024-02-29"), (Date{1709164800}));
    for (const char* text : {"2025-02-29", "2025-13-01", "2025-04-31", "2025-3-04", " 2025-03-04"})
        EXPECT_EQ(OpenRouterSource::day(text), std::nullopt) << text;
}

TEST_F(ReadersTest, XAIShowsWhicheverFigureItGot) {
    key("xai-management-key", "KEY");
    key("xai-team-id", "team-42");
    const std::string prepaid = "/v1/billing/teams/team-42/prepaid/balance";
    const std::string invoice = "/v1/billing/teams/team-42/postpaid/invoice/preview";
    server->on(prepaid, Reply{200, R"({"total":{"val":"1234"},"changes":[]})"});  // cents
    server->on(invoice, Reply{200, R"({"amountBeforeVat":"560","amountAfterVat":"678"})"});
    EXPECT_EQ(shown(XAIBillingSource::fetch()),
              (Lines{"xai-api|Prepaid balance $12.34 credits remaining",
                     "xai-api|This period $5.60 before VAT"}));
    server->on(prepaid, Reply{403, "<html>Forbidden</html>", "text/html"});
    EXPECT_EQ(shown(XAIBillingSource::fetch()), (Lines{"xai-api|This period $5.60 before VAT"}));
    server->on(prepaid, Reply{200, R"({"total":12})"});
    server->on(invoice, Reply{200, std::string(99, ' '), "", 0, true});
    EXPECT_EQ(shown(XAIBillingSource::fetch()),
              (Lines{"xai-api|Prepaid balance $0.00 credits remaining"}));
}

TEST_F(ReadersTest, CursorPagingStopsAtTheTotalAnEmptyPageOrPage40) {
    signInToCursor("token");
    const struct {
        std::string total;  // what the answer claims
        int size, lastPage, requests;
    } cases[] = {
        {R"("totalUsageEventsCount":"250",)", 100, 99, 3},
        {R"("totalUsageEventsCount":10000,)", 100, 99, 40},
        {"", 1, 99, 40},                                 // no total: on to page 40 as well
        {R"("totalUsageEventsCount":500,)", 100, 1, 2},  // page 2 is empty
    };
    for (auto& c : cases) {
        server->on(kCursor, [&c](const testing::ReceivedRequest& request) {
            const auto page = JSONDocument::parse(request.body)->root()["page"].integer();
            std::string events;
            for (int i = 0; page <= c.lastPage && i < c.size; ++i)
                events +=
                    std::string(events.empty() ? "" : ",") + R"({"timestamp":")" +
                    std::to_string(1760900000000 + page * 100000 + i) +
                    R"(","model":"gpt-5","conversationId":"c1","tokenUsage":{"inputTokens":10}})";
            return Reply{200, "{" + c.total + R"("usageEventsDisplay":[)" + events + "]}"};
        });
        const size_t before = server->requests().size();
        auto records = CursorSource::fetch(kNow);
        EXPECT_EQ(server->requests().size() - before, size_t(c.requests)) << c.total;
        ASSERT_EQ(records.size(), 1u);  // folded: one conversation, model and day
        EXPECT_EQ(records[0].calls, std::min(c.lastPage, c.requests) * c.size) << c.total;
    }
}

}  // namespace
}  // namespace usagekit
