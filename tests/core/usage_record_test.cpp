#include "core/usage_record.h"
#include "core/json_coding.h"
#include "core/provider.h"
#include "support/records.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace usagekit {
namespace {

TEST(Provider, UnknownIdsAreLegalMeteredAndNamedAfterThemselves) {
    auto json = JSONDocument::parse(R"({"id":"zeta-tool"})");
    auto provider = Provider::decode(json->root());
    ASSERT_TRUE(provider);
    EXPECT_EQ(provider->name(), "zeta-tool");
    EXPECT_EQ(provider->shortName(), "ZE");
    EXPECT_TRUE(provider->isMetered());
    EXPECT_FALSE(Provider::decode(JSONDocument::parse(R"("zeta-tool")")->root()));
}

TEST(Provider, CatalogueOrderSeatsAndShortNames) {
    std::string catalogue;  // in order, seats marked with "*"
    for (const Provider& p : Provider::all())
        catalogue += p.id + (p.isMetered() ? " " : "* ");
    EXPECT_EQ(catalogue,
              "claude-code* grok-cli* codex-cli* gemini-cli* cursor-agent* cursor-on-demand "
              "opencode github-copilot* devin-cli* antigravity* anthropic-api openai-api xai-api "
              "openrouter deepseek gumloop ");
    EXPECT_EQ(Provider::openAI.shortName() + Provider::openCode.shortName(), "OPOP");
}

TEST(Provider, SortsByDisplayNameNotById) {
    std::vector<Provider> list{Provider::openRouter, Provider::anthropic, Provider::claudeCode};
    std::sort(list.begin(), list.end());
    EXPECT_EQ(list, (std::vector<Provider>{Provider::anthropic, Provider::claudeCode,
                                           Provider::openRouter}));
}

UsageRecord sample() {
    UsageRecord r = testing::record(Provider::claudeCode, "claude-sonnet-4-6", 10,
                                    testing::at("2026-03-01T12:34:56Z"));
    r.id = "req_1";
    r.output = 5;
    r.cacheRead = 100;
    r.cacheWrite = 20;
    r.reasoning = 7;
    return r;
}

TEST(UsageRecord, TotalLeavesReasoningOut) {
    UsageRecord r = sample();
    EXPECT_EQ(r.total(), 135);
    EXPECT_EQ(r.read(), 130);
    r.input = INT64_MAX;
    EXPECT_THROW(r.total(), OutOfRange);
}

TEST(UsageRecord, ProjectNameIsTheLastPathComponent) {
    const std::pair<std::optional<std::string>, const char*> cases[] = {
        {std::nullopt, "\u2014"},
        {"", "\u2014"},
        {"/a/b/", "b"},
        {"/Users/me/src/app", "app"},
        {"plain", "plain"}};
    UsageRecord r = sample();
    for (const auto& [project, name] : cases) {
        r.project = project;
        EXPECT_EQ(r.projectName(), name) << project.value_or("(none)");
    }
}

TEST(UsageRecord, RoundTripsAndLeavesAbsentOptionalsOut) {
    UsageRecord r = sample();
    std::string text = jsonData(r, false);
    EXPECT_EQ(text.find("\"session\":"), std::string::npos);
    EXPECT_EQ(text.find("reportedCostUSD"), std::string::npos);
    EXPECT_NE(text.find(R"("provider":{"id":"claude-code"})"), std::string::npos);
    EXPECT_NE(text.find(R"("date":"2026-03-01T12:34:56Z")"), std::string::npos);
    auto back = UsageRecord::decode(JSONDocument::parse(text)->root());
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, r);

    r.project = "/w/app";
    r.session = "s1";
    r.reportedCostUSD = 0.125;
    back = UsageRecord::decode(JSONDocument::parse(jsonData(r, true))->root());
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, r);
}

TEST(UsageRecord, DecodingNeedsEveryRequiredKey) {
    std::string good = jsonData(sample(), false);
    EXPECT_TRUE(UsageRecord::decode(JSONDocument::parse(good)->root()));
    for (const char* key : {"\"kind\"", "\"calls\"", "\"date\"", "\"provider\"", "\"reasoning\""}) {
        std::string broken = good;
        broken.replace(broken.find(key), std::string(key).size(), "\"unknownKey\"");
        EXPECT_FALSE(UsageRecord::decode(JSONDocument::parse(broken)->root())) << key;
    }
    std::string nulls = good;
    nulls.insert(1, R"("session":null,"reportedCostUSD":null,)");
    auto decoded = UsageRecord::decode(JSONDocument::parse(nulls)->root());
    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoded->session);
    EXPECT_FALSE(decoded->reportedCostUSD);
    std::string fractional = good;
    fractional.replace(fractional.find("\"calls\":1"), 9, "\"calls\":1.5");
    EXPECT_FALSE(UsageRecord::decode(JSONDocument::parse(fractional)->root()));
}

}  // namespace
}  // namespace usagekit
