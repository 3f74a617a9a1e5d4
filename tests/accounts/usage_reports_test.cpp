#include "accounts/anthropic_admin.h"
#include "accounts/http.h"
#include "accounts/openai_usage.h"

#include "support/fake_provider.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::Reply;

// 2026-08-01T09:15:02Z
constexpr Date kNow{1785575702};
constexpr const char* kAnthropicPath = "/v1/organizations/usage_report/messages";
constexpr const char* kOpenAIPath = "/v1/organization/usage/completions";

class UsageReportsTest : public testing::ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        endpoint("ANTHROPIC");
        endpoint("OPENAI");
    }
    testing::ScopedTimeZone zone{"UTC0"};
};

// Shaped like the real report: fields beyond the ones we read, null workspaces.
const char* kAnthropicReport = R"({"data":[
{"starting_at":"2026-07-30T00:00:00Z","ending_at":"2026-07-31T00:00:00Z","results":[
 {"api_key_id":null,"workspace_id":null,"model":"claude-sonnet-4-6","service_tier":"standard","context_window":"0-200k","uncached_input_tokens":1500,"cache_creation":{"ephemeral_1h_input_tokens":1000,"ephemeral_5m_input_tokens":500},"cache_read_input_tokens":200,"output_tokens":500,"server_tool_use":{"web_search_requests":10}},
 {"api_key_id":null,"workspace_id":"wrkspc_01","model":"claude-sonnet-4-6","uncached_input_tokens":"7","cache_creation":{"ephemeral_5m_input_tokens":40},"output_tokens":1.9},
 {"workspace_id":null,"uncached_input_tokens":0,"cache_creation_input_tokens":900,"output_tokens":3},
 {"model":"claude-opus-4-1","uncached_input_tokens":0,"cache_creation":null,"cache_read_input_tokens":0,"output_tokens":0},
 {"model":"claude-opus-4-1","uncached_input_tokens":1e30,"output_tokens":5},
 "not a result",
 {"model":"claude-haiku-4-5","uncached_input_tokens":[1],"output_tokens":true}
]},
{"starting_at":"2026-07-31T00:00:00.528743+00:00","results":[{"model":"claude-opus-4-1","uncached_input_tokens":10}]},
{"starting_at":"yesterday","results":[{"model":"claude-opus-4-1","uncached_input_tokens":10}]},
{"starting_at":"2026-08-01T00:00:00Z","results":{"model":"claude-opus-4-1"}},
{"results":[{"model":"claude-opus-4-1","uncached_input_tokens":10}]}
],"has_more":true,"next_page":"page_2"})";

TEST_F(UsageReportsTest, AnthropicAsksForAtMost31DaysWithTheKeyAndVersion) {
    key("anthropic-admin-key", "sk-ant-admin01-test");
    server->on(kAnthropicPath, Reply{200, R"({"data":[],"has_more":false})"});
    EXPECT_TRUE(AnthropicAdminSource::fetch(90, kNow).empty());
    ASSERT_EQ(server->requests().size(), 1u);  // has_more is never followed
    auto seen = server->requests()[0];
    EXPECT_EQ(seen.method, "GET");
    EXPECT_EQ(seen.path, kAnthropicPath);
    EXPECT_EQ(seen.query(),
              "starting_at=2026-07-01T09:15:02Z&bucket_width=1d&limit=31&group_by%5B%5D=model");
    EXPECT_TRUE(seen.header("x-api-key") == "sk-ant-admin01-test");  // never printed
    EXPECT_EQ(seen.header("anthropic-version"), "2023-06-01");
    EXPECT_EQ(seen.headerNames(),
              (std::vector<std::string>{"anthropic-version", "host", "x-api-key"}));

    AnthropicAdminSource::fetch(7, kNow);
    EXPECT_EQ(server->requests()[1].query().substr(0, 32), "starting_at=2026-07-25T09:15:02Z");
}

TEST_F(UsageReportsTest, AnthropicResultsBecomeRecordsOneByOne) {
    key("anthropic-admin-key", "sk-ant-admin01-test");
    server->on(kAnthropicPath, Reply{200, kAnthropicReport});
    auto records = AnthropicAdminSource::fetch(30, kNow);
    ASSERT_EQ(records.size(), 5u);

    const UsageRecord& full = records[0];
    EXPECT_EQ(full.id, "anthropic-2026-07-30T00:00:00Z-claude-sonnet-4-6");
    EXPECT_EQ(full.date, (Date{1785369600}));
    EXPECT_EQ(full.provider, Provider::anthropic);
    EXPECT_EQ(full.kind, "api");
    EXPECT_EQ(full.project, std::nullopt);
    EXPECT_EQ(full.session, std::nullopt);
    EXPECT_EQ(full.calls, 0);
    EXPECT_EQ(full.input, 1500);
    EXPECT_EQ(full.output, 500);
    EXPECT_EQ(full.cacheRead, 200);
    EXPECT_EQ(full.cacheWrite, 1500);
    EXPECT_EQ(full.reportedCostUSD, std::nullopt);

    // Same model, another workspace: same id, not merged.
    const UsageRecord& workspace = records[1];
    EXPECT_EQ(workspace.id, full.id);
    EXPECT_EQ(workspace.project, "wrkspc_01");
    EXPECT_EQ(workspace.input, 7);        // numeric text counts
    EXPECT_EQ(workspace.output, 1);       // truncated
    EXPECT_EQ(workspace.cacheWrite, 40);  // only the 5-minute writes

    // The old flat cache_creation_input_tokens is not read; the model defaults.
    EXPECT_EQ(records[2].model, "unknown");
    EXPECT_EQ(records[2].cacheWrite, 0);
    EXPECT_EQ(records[2].output, 3);

    // The all-zero row, the 1e30 row and the non-object are dropped; an array count reads
    // 0 and true reads 1.
    EXPECT_EQ(records[3].model, "claude-haiku-4-5");
    EXPECT_EQ(records[3].input, 0);
    EXPECT_EQ(records[3].output, 1);

    // Fractional seconds with an offset parse; the id keeps the text as received.
    EXPECT_EQ(records[4].id, "anthropic-2026-07-31T00:00:00.528743+00:00-claude-opus-4-1");
    EXPECT_DOUBLE_EQ(records[4].date.secondsSince1970, 1785456000.528743);
}

TEST_F(UsageReportsTest, OpenAIAsksFromAUnixTimeWithOnlyTheBearerHeader) {
    key("openai-admin-key", "sk-admin-test");
    server->on(kOpenAIPath, Reply{200, R"({"object":"page","data":[],"has_more":true})"});
    EXPECT_TRUE(OpenAIUsageSource::fetch(30, kNow).empty());
    ASSERT_EQ(server->requests().size(), 1u);
    auto seen = server->requests()[0];
    EXPECT_EQ(seen.path, kOpenAIPath);
    // 30 days back, not capped and not rounded to a day.
    EXPECT_EQ(seen.query(), "start_time=1782983702&bucket_width=1d&limit=31&group_by%5B%5D=model");
    EXPECT_TRUE(seen.header("Authorization") == "Bearer sk-admin-test");
    EXPECT_EQ(seen.headerNames(), (std::vector<std::string>{"authorization", "host"}));
    OpenAIUsageSource::fetch(90, kNow);
    EXPECT_EQ(server->requests()[1].query().substr(0, 21), "start_time=1777799702");
}

TEST_F(UsageReportsTest, OpenAITakesCachedInputOutOfInput) {
    key("openai-admin-key", "sk-admin-test");
    server->on(kOpenAIPath, Reply{200, R"({"object":"page","data":[
{"object":"bucket","start_time":1735689600,"end_time":1735776000,"results":[
 {"object":"organization.usage.completions.result","input_tokens":1000,"output_tokens":500,"input_cached_tokens":800,"num_model_requests":5,"project_id":null,"model":"gpt-5","batch":null},
 {"input_tokens":1000,"input_cached_tokens":1200,"num_model_requests":"2","project_id":"proj_a","model":"gpt-5"},
 {"num_model_requests":9,"model":"gpt-5-mini"},
 {"input_tokens":-9223372036854775807,"input_cached_tokens":10,"output_tokens":1,"model":"gpt-5"},
 {"output_tokens":4,"model":7}
]},
{"object":"bucket","results":[{"input_tokens":3,"model":"gpt-4.1"}]},
{"object":"bucket","start_time":1735776000,"results":null},
"junk"],"has_more":false})"});
    auto records = OpenAIUsageSource::fetch(30, kNow);
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].id, "openai-1735689600.0-gpt-5");
    EXPECT_EQ(records[0].date, (Date{1735689600}));
    EXPECT_EQ(records[0].provider, Provider::openAI);
    EXPECT_EQ(records[0].kind, "api");
    EXPECT_EQ(records[0].calls, 5);
    EXPECT_EQ(records[0].input, 200);
    EXPECT_EQ(records[0].cacheRead, 800);
    EXPECT_EQ(records[0].output, 500);
    EXPECT_EQ(records[0].cacheWrite, 0);
    EXPECT_EQ(records[0].project, std::nullopt);

    // More cached than input: floored at zero, not negative. Same id, not merged.
    EXPECT_EQ(records[1].id, records[0].id);
    EXPECT_EQ(records[1].input, 0);
    EXPECT_EQ(records[1].cacheRead, 1200);
    EXPECT_EQ(records[1].project, "proj_a");
    EXPECT_EQ(records[1].calls, 2);

    // Requests alone do not keep a row; an overflowing difference drops only its row.
    EXPECT_EQ(records[2].model, "unknown");
    EXPECT_EQ(records[2].output, 4);
    // A bucket without a start is dated 1970.
    EXPECT_EQ(records[3].id, "openai-0.0-gpt-4.1");
    EXPECT_EQ(records[3].date, (Date{0}));
}

TEST_F(UsageReportsTest, NoKeySendsNothing) {
    EXPECT_TRUE(AnthropicAdminSource::fetch(30, kNow).empty());
    EXPECT_TRUE(OpenAIUsageSource::fetch(30, kNow).empty());
    EXPECT_TRUE(server->requests().empty());
}

TEST_F(UsageReportsTest, RefusedKeysThrowAndOddAnswersGiveNothing) {
    key("anthropic-admin-key", "sk-ant-admin01-test");
    key("openai-admin-key", "sk-admin-test");
    server->on(kAnthropicPath, Reply{401, R"({"type":"error"})"});
    server->on(kOpenAIPath, Reply{200, "<html>upstream busy</html>", "text/html"});
    try {
        AnthropicAdminSource::fetch(30, kNow);
        ADD_FAILURE() << "a refused key must throw";
    } catch (const HTTP::Err& err) {
        EXPECT_STREQ(err.what(), "Rejected the key (HTTP 401).");
    }
    EXPECT_TRUE(OpenAIUsageSource::fetch(30, kNow).empty());
    server->on(kOpenAIPath, Reply{200, R"({"data":{"start_time":1}})"});
    EXPECT_TRUE(OpenAIUsageSource::fetch(30, kNow).empty());
}

TEST_F(UsageReportsTest, AnEndpointThatIsNotAURLSendsNothing) {
    key("anthropic-admin-key", "sk-ant-admin01-test");
    testing::ScopedEnv broken("TALLY_ENDPOINT_ANTHROPIC", "not a url");
    EXPECT_TRUE(AnthropicAdminSource::fetch(30, kNow).empty());
}

}  // namespace
}  // namespace usagekit
