#include "ledger/usage_ledger.h"

#include "accounts/http.h"
#include "support/fake_provider.h"
#include "support/records.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

UsageRecord rec(const Provider& provider, double when) {
    return testing::record(provider, "m", 1, Date{when});
}

ProviderBalance balance(const Provider& provider, const std::string& label) {
    ProviderBalance b;
    b.provider = provider;
    b.label = label;
    return b;
}

// Remote sources that answer fixed results and note the order in which they were called.
struct Calls {
    std::vector<std::string> order;
    template <class Result>
    std::function<Result()> noted(const char* name, Result result) {
        return [this, name, result] {
            order.push_back(name);
            return result;
        };
    }
    UsageLedger::RemoteSources sources() {
        using Records = std::vector<UsageRecord>;
        using Balances = std::vector<ProviderBalance>;
        return {.anthropic = noted("anthropic", Records{rec(Provider::anthropic, 300)}),
                .openAI = noted("openai", Records{rec(Provider::openAI, 100)}),
                .openRouterActivity = noted("openrouter", Records{}),
                .cursor = noted("cursor", Records{rec(Provider::cursorAgent, 200)}),
                .xai = noted("xai", Balances{balance(Provider::xai, "Prepaid balance")}),
                .deepSeek = noted("deepseek", Balances{balance(Provider::deepSeek, "Balance")}),
                .openRouterCredits =
                    noted("credits", std::optional(balance(Provider::openRouter, "Credits left")))};
    }
};

TEST(RemoteRefresh, CallsRunInOrderAndReplaceOnlyTheRemoteShare) {
    UsageLedger ledger(Pricing::builtIn());
    ledger.records = {rec(Provider::claudeCode, 250), rec(Provider::cursorAgent, 50),
                      rec(Provider::openAI, 10)};
    ledger.problems = {"OpenCode: locked", "API Anthropic \u2014 old"};
    ledger.balances = {balance(Provider::xai, "stale")};
    Calls calls;
    ledger.refreshRemote(calls.sources());

    EXPECT_EQ(calls.order, (std::vector<std::string>{"anthropic", "openai", "openrouter", "cursor",
                                                     "xai", "deepseek", "credits"}));
    std::vector<std::string> providers;
    for (const auto& r : ledger.records)
        providers.push_back(r.provider.id);
    EXPECT_EQ(providers, (std::vector<std::string>{"anthropic-api", "claude-code", "cursor-agent",
                                                   "openai-api"}));
    EXPECT_EQ(ledger.problems, std::vector<std::string>{"OpenCode: locked"});
    ASSERT_EQ(ledger.balances.size(), 3u);
    EXPECT_EQ(ledger.balances[0].id(), "xai-api|Prepaid balance");
    EXPECT_EQ(ledger.balances[2].id(), "openrouter|Credits left");
}

TEST(RemoteRefresh, AFailingCallIsOneProblemAndItsOldRecordsStillGo) {
    UsageLedger ledger(Pricing::builtIn());
    ledger.records = {rec(Provider::cursorOnDemand, 50), rec(Provider::geminiCLI, 40)};
    ledger.problems = {"API OpenAI \u2014 earlier"};
    Calls calls;
    auto sources = calls.sources();
    sources.cursor = []() -> std::vector<UsageRecord> { throw std::runtime_error("boom"); };
    sources.deepSeek = []() -> std::vector<ProviderBalance> { throw std::runtime_error("down"); };
    ledger.refreshRemote(sources);
    EXPECT_EQ(ledger.problems,
              (std::vector<std::string>{"API Cursor \u2014 boom", "API DeepSeek \u2014 down"}));
    for (const auto& r : ledger.records)
        EXPECT_NE(r.provider.id, "cursor-on-demand");
    EXPECT_EQ(ledger.balances.size(), 2u);  // xAI and the OpenRouter credits
}

TEST(RemoteRefresh, AStalledServerCostsTheRefreshItsBudgetNotThirtySecondsARequest) {
    testing::FakeProvider stalled;
    stalled.on("/", testing::Reply{.delaySeconds = 20});
    Calls calls;
    UsageLedger::RemoteSources sources = calls.sources();
    sources.anthropic = [&] {
        HTTP::get(stalled.url() + "/", {}, 30);
        return std::vector<UsageRecord>{};
    };
    UsageLedger ledger(Pricing::builtIn());
    const auto start = std::chrono::steady_clock::now();
    ledger.refreshRemote(sources, std::chrono::milliseconds(300));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    ASSERT_EQ(ledger.problems.size(), 7u);
    EXPECT_EQ(ledger.problems[0],
              "API Anthropic \u2014 The request to 127.0.0.1 timed out after 0.3 seconds.");
    EXPECT_EQ(ledger.problems[6],
              "API OpenRouter \u2014 Not asked: the refresh ran out of its 0.3 seconds.");
    EXPECT_TRUE(calls.order.empty());
}

}  // namespace
}  // namespace usagekit
