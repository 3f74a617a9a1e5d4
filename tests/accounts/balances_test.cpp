#include "accounts/balances.h"
#include "accounts/http.h"

#include "support/fake_provider.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::Reply;

constexpr const char* kPrepaid = "/v1/billing/teams/team-42/prepaid/balance";
constexpr const char* kInvoice = "/v1/billing/teams/team-42/postpaid/invoice/preview";

class BalancesTest : public testing::ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        endpoint("XAI");
        endpoint("OPENROUTER");
        endpoint("DEEPSEEK");
    }
    void xaiKeys() {
        key("xai-management-key", "xai-mgmt-test");
        key("xai-team-id", "team-42");
    }
};

TEST_F(BalancesTest, XAIReadsPrepaidCreditThenTheInvoiceInCents) {
    xaiKeys();
    server->on(kPrepaid, Reply{200, R"({"total":{"val":"1234"},"changes":[]})"});
    server->on(kInvoice, Reply{200, R"({"amountBeforeVat":"560","amountAfterVat":"678"})"});
    auto balances = XAIBillingSource::fetch();
    ASSERT_EQ(balances.size(), 2u);
    EXPECT_EQ(balances[0], (ProviderBalance{Provider::xai, "Prepaid balance", 12.34, "USD",
                                            "credits remaining"}));
    EXPECT_EQ(balances[0].id(), "xai-api|Prepaid balance");
    EXPECT_EQ(balances[0].figure(), "$12.34");
    EXPECT_EQ(balances[1],
              (ProviderBalance{Provider::xai, "This period", 5.6, "USD", "before VAT"}));
    auto seen = server->requests();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].target, kPrepaid);
    EXPECT_EQ(seen[1].target, kInvoice);
    EXPECT_TRUE(seen[0].header("Authorization") == "Bearer xai-mgmt-test");
    EXPECT_EQ(seen[0].headerNames(), (std::vector<std::string>{"authorization", "host"}));
}

TEST_F(BalancesTest, XAISwallowsEveryFailure) {
    xaiKeys();
    // A refused prepaid read leaves the invoice alone.
    server->on(kPrepaid, Reply{403, "<html>Forbidden</html>", "text/html"});
    server->on(kInvoice, Reply{200, R"({"amountBeforeVat":0})"});
    auto balances = XAIBillingSource::fetch();
    ASSERT_EQ(balances.size(), 1u);
    EXPECT_EQ(balances[0].label, "This period");
    EXPECT_EQ(balances[0].figure(), "$0.00");

    // A prepaid answer of the wrong shape still gives its (zero) entry; a dropped invoice
    // connection gives nothing and no error.
    server->on(kPrepaid, Reply{200, R"({"total":12})"});
    server->on(kInvoice, Reply{200, std::string(100, ' '), "application/json", 0, true});
    balances = XAIBillingSource::fetch();
    ASSERT_EQ(balances.size(), 1u);
    EXPECT_EQ(balances[0].label, "Prepaid balance");
    EXPECT_EQ(balances[0].amountUSD, 0);
}

TEST_F(BalancesTest, XAIWithoutBothKeyAndTeamSendsNothing) {
    key("xai-management-key", "xai-mgmt-test");
    EXPECT_TRUE(XAIBillingSource::fetch().empty());
    key("xai-management-key", "");
    key("xai-team-id", "team-42");
    EXPECT_TRUE(XAIBillingSource::fetch().empty());
    // A team id that makes no URL gives no figures rather than a malformed request.
    key("xai-management-key", "xai-mgmt-test");
    key("xai-team-id", "team 42");
    EXPECT_TRUE(XAIBillingSource::fetch().empty());
    EXPECT_TRUE(server->requests().empty());
}

TEST_F(BalancesTest, OpenRouterCreditsLeftNeverGoNegative) {
    key("openrouter-management-key", "sk-or-test");
    struct Case {
        const char* answer;
        std::optional<double> left;
        const char* detail;
    };
    const Case cases[] = {
        {R"({"data":{"total_credits":100.5,"total_usage":25.75}})", 74.75, "of $100.50 purchased"},
        {R"({"data":{"total_credits":10,"total_usage":12}})", 0, "of $10.00 purchased"},
        {R"({"data":{"total_credits":0,"total_usage":0}})", std::nullopt, ""},
        {R"({"data":{"total_usage":3}})", 0, "of $0.00 purchased"},
        {R"({"total_credits":"25"})", 25, "of $25.00 purchased"},  // no "data": the answer
        {R"({"data":null,"total_credits":5,"total_usage":1})", 4, "of $5.00 purchased"},
        {R"({"data":"n/a","total_credits":5})", std::nullopt, ""},
        {R"({"data":{"total_credits":-1}})", std::nullopt, ""},
        {R"([1,2])", std::nullopt, ""},
    };
    for (const Case& c : cases) {
        server->on("/api/v1/credits", Reply{200, c.answer});
        auto balance = OpenRouterSource::credits();
        ASSERT_EQ(balance.has_value(), c.left.has_value()) << c.answer;
        if (!balance) continue;
        EXPECT_EQ(balance->amountUSD, *c.left) << c.answer;
        EXPECT_EQ(balance->detail, c.detail) << c.answer;
        EXPECT_EQ(balance->label, "Credits left");
        EXPECT_EQ(balance->provider, Provider::openRouter);
    }
    EXPECT_EQ(server->requests().at(0).target, "/api/v1/credits");
}

TEST_F(BalancesTest, OpenRouterActivityKeepsRowsThatCostMoney) {
    key("openrouter-management-key", "sk-or-test");
    server->on("/api/v1/activity", Reply{200, R"({"data":[
{"date":"2026-08-24","model":"openai/gpt-5","model_permaslug":"openai/gpt-5-2026-08-01","provider_name":"OpenAI","usage":0.015,"requests":5,"prompt_tokens":50,"completion_tokens":125,"reasoning_tokens":25},
{"date":"2026-08-24","model":"anthropic/claude-sonnet-4.6","usage":0.01,"requests":1,"prompt_tokens":0,"completion_tokens":0},
{"date":"2026-08-24","model":"x-ai/grok-4","requests":1,"prompt_tokens":0,"completion_tokens":0},
{"date":"2026-08-24 00:00:00","model":"openai/gpt-5","prompt_tokens":10},
{"date":"2026-02-29","model":"openai/gpt-5","prompt_tokens":10},
{"date":20260824,"model":"openai/gpt-5","prompt_tokens":10},
{"date":"2026-08-25","prompt_tokens":"12","completion_tokens":1e300},
{"date":"2026-08-25","prompt_tokens":"12"},
7
]})"});
    auto records = OpenRouterSource::fetch();
    ASSERT_EQ(records.size(), 3u);
    const UsageRecord& first = records[0];
    EXPECT_EQ(first.id, "openrouter-2026-08-24-openai/gpt-5-2026-08-01");
    EXPECT_EQ(first.date, (Date{1787529600}));
    EXPECT_EQ(first.provider, Provider::openRouter);
    EXPECT_EQ(first.kind, "api");
    EXPECT_EQ(first.calls, 5);
    EXPECT_EQ(first.input, 50);
    EXPECT_EQ(first.output, 125);
    EXPECT_EQ(first.reasoning, 25);
    EXPECT_EQ(first.cacheRead, 0);
    EXPECT_EQ(first.reportedCostUSD, 0.015);
    // No tokens but a cost: kept. No tokens and no cost: dropped.
    EXPECT_EQ(records[1].model, "anthropic/claude-sonnet-4.6");
    EXPECT_EQ(records[1].reportedCostUSD, 0.01);
    // Without a model the provider's name stands in; the 1e300 row alone is dropped.
    EXPECT_EQ(records[2].model, "openrouter");
    EXPECT_EQ(records[2].input, 12);
    EXPECT_EQ(records[2].reportedCostUSD, std::nullopt);

    // A bare array is read too.
    server->on("/api/v1/activity", Reply{200, R"([{"date":"2026-08-26","prompt_tokens":1}])"});
    EXPECT_EQ(OpenRouterSource::fetch().size(), 1u);
}

TEST_F(BalancesTest, OpenRouterDayMustBeACalendarDayAndNothingElse) {
    EXPECT_EQ(OpenRouterSource::day("2024-02-29"), (Date{1709164800}));
    EXPECT_EQ(OpenRouterSource::day("1970-01-01"), (Date{0}));
    for (const char* text : {"2025-02-29", "2025-13-01", "2025-04-31", "2025-3-04", "2025-03-04Z",
                             " 2025-03-04", "2025/03/04", ""})
        EXPECT_EQ(OpenRouterSource::day(text), std::nullopt) << text;
}

TEST_F(BalancesTest, DeepSeekGivesOneBalancePerCurrency) {
    key("deepseek-api-key", "sk-ds-test");
    server->on("/user/balance", Reply{200, R"({"is_available":true,"balance_infos":[
{"currency":"CNY","total_balance":"110.00","granted_balance":"10.00","topped_up_balance":"100.00"},
{"currency":"USD","total_balance":"abc","topped_up_balance":"1.00"},
{"total_balance":2.5,"topped_up_balance":""},
{"currency":"EUR","total_balance":" 3.00"},
"junk"]})"});
    auto balances = DeepSeekSource::fetch();
    ASSERT_EQ(balances.size(), 2u);
    EXPECT_EQ(balances[0],
              (ProviderBalance{Provider::deepSeek, "Balance", 110, "CNY", "100.00 topped up"}));
    EXPECT_EQ(balances[0].figure(), "110.00 CNY");
    EXPECT_EQ(balances[0].id(), "deepseek|Balance");
    EXPECT_EQ(balances[1].currency, "USD");
    EXPECT_EQ(balances[1].detail, "available");
    EXPECT_EQ(balances[1].figure(), "$2.50");
    auto seen = server->requests().at(0);
    EXPECT_EQ(seen.target, "/user/balance");
    EXPECT_TRUE(seen.header("Authorization") == "Bearer sk-ds-test");
}

TEST_F(BalancesTest, FigureUsesTheDollarSignOnlyForExactlyUSD) {
    EXPECT_EQ((ProviderBalance{Provider::deepSeek, "Balance", 12.3, "USD", ""}).figure(), "$12.30");
    EXPECT_EQ((ProviderBalance{Provider::deepSeek, "Balance", 12.3, "usd", ""}).figure(),
              "12.30 usd");
}

TEST_F(BalancesTest, OpenRouterAndDeepSeekReportFailuresXAIDoesNot) {
    key("openrouter-management-key", "sk-or-test");
    key("deepseek-api-key", "sk-ds-test");
    server->on("/api/v1/credits", Reply{401, R"({"error":{"message":"No auth"}})"});
    server->on("/user/balance", Reply{500, "Internal Server Error", "text/plain"});
    EXPECT_THROW(OpenRouterSource::credits(), HTTP::Err);
    EXPECT_THROW(OpenRouterSource::fetch(), HTTP::Err);  // 404: not configured
    try {
        DeepSeekSource::fetch();
        ADD_FAILURE() << "a failing service must throw";
    } catch (const HTTP::Err& err) {
        EXPECT_STREQ(err.what(), "HTTP 500 \u2014 Internal Server Error");
    }
}

TEST_F(BalancesTest, NoKeySendsNothing) {
    EXPECT_FALSE(OpenRouterSource::credits());
    EXPECT_TRUE(OpenRouterSource::fetch().empty());
    EXPECT_TRUE(DeepSeekSource::fetch().empty());
    EXPECT_TRUE(XAIBillingSource::fetch().empty());
    EXPECT_TRUE(server->requests().empty());
}

}  // namespace
}  // namespace usagekit
