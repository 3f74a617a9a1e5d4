#include "ledger/usage_ledger.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

UsageRecord rec(const Provider& provider, double when) {
    UsageRecord r;
    r.id = provider.id;
    r.date = Date{when};
    r.provider = provider;
    r.model = "m";
    r.kind = "api";
    r.input = 1;
    return r;
}

ProviderBalance balance(const Provider& provider, const std::string& label) {
    ProviderBalance b;
    b.provider = provider;
    b.label = label;
    return b;
}

struct Calls {
    std::vector<std::string> order;
    UsageLedger::RemoteSources sources() {
        UsageLedger::RemoteSources s;
        auto records = [this](const char* name, std::vector<UsageRecord> result) {
            return [this, name, result] {
                order.push_back(name);
                return result;
            };
        };
        s.anthropic = records("anthropic", {rec(Provider::anthropic, 300)});
        s.openAI = records("openai", {rec(Provider::openAI, 100)});
        s.openRouterActivity = records("openrouter", {});
        s.cursor = records("cursor", {rec(Provider::cursorAgent, 200)});
        s.xai = [this] {
            order.push_back("xai");
            return std::vector<ProviderBalance>{balance(Provider::xai, "Prepaid balance")};
        };
        s.deepSeek = [this] {
            order.push_back("deepseek");
            return std::vector<ProviderBalance>{balance(Provider::deepSeek, "Balance")};
        };
        s.openRouterCredits = [this] {
            order.push_back("credits");
            return std::optional<ProviderBalance>(balance(Provider::openRouter, "Credits left"));
        };
        return s;
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

}  // namespace
}  // namespace usagekit
