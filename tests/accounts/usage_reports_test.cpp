#include "accounts/anthropic_admin.h"
#include "accounts/http.h"
#include "accounts/openai_usage.h"

#include "support/fake_provider.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::lines;
using testing::Reply;
using Lines = std::vector<std::string>;

constexpr Date kNow{1785575702};  // 2026-08-01T09:15:02Z
constexpr const char* kAnthropic = "/v1/organizations/usage_report/messages";
constexpr const char* kOpenAI = "/v1/organization/usage/completions";

class UsageReportsTest : public testing::ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        endpoint("ANTHROPIC");
        endpoint("OPENAI");
    }
    testing::ScopedTimeZone zone{"UTC0"};
};

TEST_F(UsageReportsTest, RequestsCarryTheKeyAndTheQueryInOrder) {
    EXPECT_TRUE(AnthropicAdminSource::fetch(30, kNow).empty());  // no key: nothing sent
    EXPECT_TRUE(OpenAIUsageSource::fetch(30, kNow).empty());
    EXPECT_TRUE(server->requests().empty());
    key("anthropic-admin-key", "sk-ant-admin01-test");
    key("openai-admin-key", "sk-admin-test");
    server->on(kAnthropic, Reply{200, R"({"data":[],"has_more":true,"next_page":"p2"})"});
    server->on(kOpenAI, Reply{200, R"({"object":"page","data":[],"has_more":true})"});
    AnthropicAdminSource::fetch(90, kNow);
    OpenAIUsageSource::fetch(90, kNow);

    auto seen = server->requests();
    ASSERT_EQ(seen.size(), 2u);  // paging keys are never followed
    // Anthropic: at most 31 days back, as ISO 8601.
    EXPECT_EQ(seen[0].path, kAnthropic);
    EXPECT_EQ(seen[0].query(),
              "starting_at=2026-07-01T09:15:02Z&bucket_width=1d&limit=31&group_by%5B%5D=model");
    EXPECT_EQ(seen[0].headerNames(), (Lines{"anthropic-version", "host", "x-api-key"}));
    EXPECT_TRUE(seen[0].header("x-api-key") == "sk-ant-admin01-test");
    EXPECT_EQ(seen[0].header("anthropic-version"), "2023-06-01");
    // OpenAI: not capped, as a Unix time.
    EXPECT_EQ(seen[1].path, kOpenAI);
    EXPECT_EQ(seen[1].query(),
              "start_time=1777799702&bucket_width=1d&limit=31&group_by%5B%5D=model");
    EXPECT_EQ(seen[1].headerNames(), (Lines{"authorization", "host"}));
    EXPECT_TRUE(seen[1].header("Authorization") == "Bearer sk-admin-test");
}

TEST_F(UsageReportsTest, AnthropicResultsBecomeRecordsOneByOne) {
    key("anthropic-admin-key", "sk-ant-admin01-test");
    server->on(kAnthropic, Reply{200, R"({"data":[
{"starting_at":"2026-07-30T00:00:00Z","ending_at":"2026-07-31T00:00:00Z","results":[
 {"api_key_id":null,"workspace_id":null,"model":"claude-sonnet-4-6","service_tier":"standard","uncached_input_tokens":1500,"cache_creation":{"ephemeral_1h_input_tokens":1000,"ephemeral_5m_input_tokens":500},"cache_read_input_tokens":200,"output_tokens":500,"server_tool_use":{"web_search_requests":10}},
 {"workspace_id":"wrkspc_01","model":"claude-sonnet-4-6","uncached_input_tokens":"7","cache_creation":{"ephemeral_5m_input_tokens":40},"output_tokens":1.9},
 {"cache_creation_input_tokens":900,"output_tokens":3},
 {"model":"claude-opus-4-1","uncached_input_tokens":0,"cache_creation":null,"output_tokens":0},
 {"model":"claude-opus-4-1","uncached_input_tokens":1e30,"output_tokens":5},
 "not a result"]},
{"starting_at":"2026-07-31T00:00:00.5+00:00","results":[{"model":"claude-opus-4-1","output_tokens":10}]},
{"starting_at":"yesterday","results":[{"model":"claude-opus-4-1","output_tokens":10}]},
{"starting_at":"2026-08-01T00:00:00Z","results":{"model":"claude-opus-4-1","output_tokens":10}}
]})"});
    // Same model in two workspaces: same id, not merged. The flat cache_creation_input_tokens
    // is not read; all-zero rows, the 1e30 row and the non-object are dropped alone.
    EXPECT_EQ(lines(AnthropicAdminSource::fetch(30, kNow)),
              (Lines{"anthropic-2026-07-30T00:00:00Z-claude-sonnet-4-6 @2026-07-30T00:00:00Z api "
                     "calls=0 in=1500 out=500 cr=200 cw=1500 rs=0 anthropic-api p=- s=-",
                     "anthropic-2026-07-30T00:00:00Z-claude-sonnet-4-6 @2026-07-30T00:00:00Z api "
                     "calls=0 in=7 out=1 cr=0 cw=40 rs=0 anthropic-api p=wrkspc_01 s=-",
                     "anthropic-2026-07-30T00:00:00Z-unknown @2026-07-30T00:00:00Z api calls=0 "
                     "in=0 out=3 cr=0 cw=0 rs=0 anthropic-api p=- s=-",
                     "anthropic-2026-07-31T00:00:00.5+00:00-claude-opus-4-1 @2026-07-31T00:00:00Z "
                     "api calls=0 in=0 out=10 cr=0 cw=0 rs=0 anthropic-api p=- s=-"}));
}

TEST_F(UsageReportsTest, OpenAITakesCachedInputOutOfInput) {
    key("openai-admin-key", "sk-admin-test");
    server->on(kOpenAI, Reply{200, R"({"object":"page","data":[
{"object":"bucket","start_time":1735689600,"end_time":1735776000,"results":[
 {"object":"organization.usage.completions.result","input_tokens":1000,"output_tokens":500,"input_cached_tokens":800,"num_model_requests":5,"project_id":null,"model":"gpt-5","batch":null},
 {"input_tokens":1000,"input_cached_tokens":1200,"num_model_requests":"2","project_id":"proj_a","model":"gpt-5"},
 {"num_model_requests":9,"model":"gpt-5-mini"},
 {"input_tokens":-9223372036854775807,"input_cached_tokens":10,"output_tokens":1,"model":"gpt-5"}]},
{"object":"bucket","results":[{"input_tokens":3,"model":7}]},
"junk"]})"});
    // More cached than input floors at zero; requests alone keep no row; an overflowing
    // difference drops its row; a bucket without a start is dated 1970.
    EXPECT_EQ(lines(OpenAIUsageSource::fetch(30, kNow)),
              (Lines{"openai-1735689600.0-gpt-5 @2025-01-01T00:00:00Z api calls=5 in=200 out=500 "
                     "cr=800 cw=0 rs=0 openai-api p=- s=-",
                     "openai-1735689600.0-gpt-5 @2025-01-01T00:00:00Z api calls=2 in=0 out=0 "
                     "cr=1200 cw=0 rs=0 openai-api p=proj_a s=-",
                     "openai-0.0-unknown @1970-01-01T00:00:00Z api calls=0 in=3 out=0 cr=0 cw=0 "
                     "rs=0 openai-api p=- s=-"}));
}

TEST_F(UsageReportsTest, RefusedKeysThrowAndOddAnswersGiveNothing) {
    key("anthropic-admin-key", "sk-ant-admin01-test");
    key("openai-admin-key", "sk-admin-test");
    server->on(kAnthropic, Reply{401, R"({"type":"error"})"});
    server->on(kOpenAI, Reply{200, "<html>upstream busy</html>", "text/html"});
    EXPECT_THROW(AnthropicAdminSource::fetch(30, kNow), HTTP::Err);
    EXPECT_TRUE(OpenAIUsageSource::fetch(30, kNow).empty());
    testing::ScopedEnv broken("TALLY_ENDPOINT_ANTHROPIC", "not a url");
    EXPECT_TRUE(AnthropicAdminSource::fetch(30, kNow).empty());
}

}  // namespace
}  // namespace usagekit
