#include "accounts/balances.h"
#include "accounts/http.h"

#include "support/fake_provider.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::lines;
using testing::Reply;
using Lines = std::vector<std::string>;

constexpr const char* kPrepaid = "/v1/billing/teams/team-42/prepaid/balance";
constexpr const char* kInvoice = "/v1/billing/teams/team-42/postpaid/invoice/preview";

// "<id> <figure> <detail>" for each balance.
Lines shown(const std::vector<ProviderBalance>& balances) {
    Lines out;
    for (const ProviderBalance& b : balances)
        out.push_back(b.id() + " " + b.figure() + " " + b.detail);
    return out;
}

class BalancesTest : public testing::ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        endpoint("XAI");
        endpoint("OPENROUTER");
        endpoint("DEEPSEEK");
    }
};

TEST_F(BalancesTest, XAINeedsKeyAndTeamAndSwallowsEveryFailure) {
    key("xai-management-key", "xai-mgmt-test");
    EXPECT_TRUE(XAIBillingSource::fetch().empty());  // no team id: nothing sent
    key("xai-team-id", "team 42");                   // no URL: nothing sent
    EXPECT_TRUE(XAIBillingSource::fetch().empty());
    EXPECT_TRUE(server->requests().empty());

    key("xai-team-id", "team-42");
    server->on(kPrepaid, Reply{200, R"({"total":{"val":"1234"},"changes":[]})"});
    server->on(kInvoice, Reply{200, R"({"amountBeforeVat":"560","amountAfterVat":"678"})"});
    EXPECT_EQ(shown(XAIBillingSource::fetch()),
              (Lines{"xai-api|Prepaid balance $12.34 credits remaining",
                     "xai-api|This period $5.60 before VAT"}));
    auto seen = server->requests();
    EXPECT_EQ(seen[0].target, kPrepaid);
    EXPECT_EQ(seen[1].target, kInvoice);
    EXPECT_EQ(seen[0].headerNames(), (Lines{"authorization", "host"}));
    EXPECT_TRUE(seen[0].header("Authorization") == "Bearer xai-mgmt-test");

    // A refused prepaid read leaves the invoice; a lost invoice answer leaves the prepaid.
    server->on(kPrepaid, Reply{403, "<html>Forbidden</html>", "text/html"});
    EXPECT_EQ(shown(XAIBillingSource::fetch()), (Lines{"xai-api|This period $5.60 before VAT"}));
    server->on(kPrepaid, Reply{200, R"({"total":12})"});
    server->on(kInvoice, Reply{200, std::string(100, ' '), "application/json", 0, true});
    EXPECT_EQ(shown(XAIBillingSource::fetch()),
              (Lines{"xai-api|Prepaid balance $0.00 credits remaining"}));
}

TEST_F(BalancesTest, OpenRouterCreditsLeftNeverGoNegative) {
    key("openrouter-management-key", "sk-or-test");
    const std::pair<const char*, const char*> cases[] = {
        {R"({"data":{"total_credits":100.5,"total_usage":25.75}})", "$74.75 of $100.50 purchased"},
        {R"({"data":{"total_credits":10,"total_usage":12}})", "$0.00 of $10.00 purchased"},
        {R"({"data":{"total_credits":0,"total_usage":0}})", "none"},
        {R"({"total_credits":"25"})", "$25.00 of $25.00 purchased"},  // no "data"
        {R"({"data":null,"total_credits":5,"total_usage":1})", "$4.00 of $5.00 purchased"},
        {R"({"data":"n/a","total_credits":5})", "none"},
        {R"({"data":{"total_credits":-1}})", "none"},
    };
    for (auto [answer, expected] : cases) {
        server->on("/api/v1/credits", Reply{200, answer});
        auto balance = OpenRouterSource::credits();
        EXPECT_EQ(balance ? balance->figure() + " " + balance->detail : "none", expected) << answer;
    }
    server->on("/api/v1/credits", Reply{200, cases[0].first});
    EXPECT_EQ(OpenRouterSource::credits().value().id(), "openrouter|Credits left");
}

TEST_F(BalancesTest, OpenRouterActivityKeepsRowsThatCostMoney) {
    key("openrouter-management-key", "sk-or-test");
    server->on("/api/v1/activity", Reply{200, R"({"data":[
{"date":"2026-08-24","model":"openai/gpt-5","model_permaslug":"openai/gpt-5-2026-08-01","provider_name":"OpenAI","usage":0.015,"requests":5,"prompt_tokens":50,"completion_tokens":125,"reasoning_tokens":25},
{"date":"2026-08-24","model":"anthropic/claude-sonnet-4.6","usage":0.01,"requests":1,"prompt_tokens":0,"completion_tokens":0},
{"date":"2026-08-24","model":"x-ai/grok-4","requests":1,"prompt_tokens":0,"completion_tokens":0},
{"date":"2026-08-24 00:00:00","model":"openai/gpt-5","prompt_tokens":10},
{"date":"2026-08-25","prompt_tokens":"12","completion_tokens":1e300},
{"date":"2026-08-25","prompt_tokens":"12"},
7]})"});
    EXPECT_EQ(lines(OpenRouterSource::fetch()),
              (Lines{"openrouter-2026-08-24-openai/gpt-5-2026-08-01 @2026-08-24T00:00:00Z api "
                     "calls=5 in=50 out=125 cr=0 cw=0 rs=25 cost=0.015 openrouter p=- s=-",
                     "openrouter-2026-08-24-anthropic/claude-sonnet-4.6 @2026-08-24T00:00:00Z api "
                     "calls=1 in=0 out=0 cr=0 cw=0 rs=0 cost=0.01 openrouter p=- s=-",
                     "openrouter-2026-08-25-openrouter @2026-08-25T00:00:00Z api calls=0 in=12 "
                     "out=0 cr=0 cw=0 rs=0 openrouter p=- s=-"}));
    EXPECT_EQ(OpenRouterSource::day("2024-02-29"), (Date{1709164800}));
    for (const char* text : {"2025-02-29", "2025-13-01", "2025-04-31", "2025-3-04", " 2025-03-04"})
        EXPECT_EQ(OpenRouterSource::day(text), std::nullopt) << text;
}

TEST_F(BalancesTest, DeepSeekGivesOneBalancePerUsableEntry) {
    key("deepseek-api-key", "sk-ds-test");
    server->on("/user/balance", Reply{200, R"({"is_available":true,"balance_infos":[
{"currency":"CNY","total_balance":"110.00","granted_balance":"10.00","topped_up_balance":"100.00"},
{"currency":"USD","total_balance":"abc","topped_up_balance":"1.00"},
{"total_balance":2.5,"topped_up_balance":""},
{"currency":"usd","total_balance":" 3.00"},
{"currency":"usd","total_balance":"3"}]})"});
    // The dollar sign is for exactly "USD".
    EXPECT_EQ(shown(DeepSeekSource::fetch()),
              (Lines{"deepseek|Balance 110.00 CNY 100.00 topped up",
                     "deepseek|Balance $2.50 available", "deepseek|Balance 3.00 usd available"}));
    EXPECT_EQ(server->requests().at(0).target, "/user/balance");
}

TEST_F(BalancesTest, OpenRouterAndDeepSeekReportFailures) {
    EXPECT_FALSE(OpenRouterSource::credits());
    EXPECT_TRUE(DeepSeekSource::fetch().empty());
    EXPECT_TRUE(server->requests().empty());  // no keys: nothing sent
    key("openrouter-management-key", "sk-or-test");
    key("deepseek-api-key", "sk-ds-test");
    server->on("/api/v1/credits", Reply{401, R"({"error":{"message":"No auth"}})"});
    server->on("/user/balance", Reply{500, "Internal Server Error", "text/plain"});
    EXPECT_THROW(OpenRouterSource::credits(), HTTP::Err);
    EXPECT_THROW(DeepSeekSource::fetch(), HTTP::Err);
}

}  // namespace
}  // namespace usagekit
