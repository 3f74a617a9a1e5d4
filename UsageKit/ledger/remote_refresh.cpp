#include "accounts/anthropic_admin.h"
#include "accounts/cursor.h"
#include "accounts/http.h"
#include "accounts/openai_usage.h"
#include "core/redact.h"
#include "ledger/usage_ledger.h"

#include <algorithm>
#include <cstdio>

namespace usagekit {

namespace {

// The providers whose records only a remote refresh produces.
bool isRemoteProvider(const Provider& provider) {
    static const char* const kRemote[] = {"anthropic-api", "openai-api", "cursor-agent",
                                          "cursor-on-demand", "openrouter"};
    return std::any_of(std::begin(kRemote), std::end(kRemote),
                       [&](const char* id) { return provider.id == id; });
}

}  // namespace

UsageLedger::RemoteSources UsageLedger::RemoteSources::live() {
    RemoteSources sources;
    sources.anthropic = [] { return AnthropicAdminSource::fetch(30); };
    sources.openAI = [] { return OpenAIUsageSource::fetch(30); };
    sources.openRouterActivity = [] { return OpenRouterSource::fetch(); };
    sources.cursor = [] { return CursorSource::fetch(Date::now()); };
    sources.xai = [] { return XAIBillingSource::fetch(); };
    sources.deepSeek = [] { return DeepSeekSource::fetch(); };
    sources.openRouterCredits = [] { return OpenRouterSource::credits(); };
    return sources;
}

void UsageLedger::refreshRemote() {
    refreshRemote(RemoteSources::live());
}

void UsageLedger::refreshRemote(const RemoteSources& sources,
                                std::chrono::steady_clock::duration budget) {
    const auto deadline = std::chrono::steady_clock::now() + budget;
    std::vector<UsageRecord> kept;
    for (UsageRecord& record : records)
        if (!isRemoteProvider(record.provider)) kept.push_back(std::move(record));
    std::vector<std::string> found;
    for (std::string& problem : problems)
        if (!problem.starts_with("API")) found.push_back(std::move(problem));

    auto call = [&](const char* name, const auto& fetch, auto&& use) {
        const std::string prefix = std::string("API ") + name + " \u2014 ";
        if (std::chrono::steady_clock::now() >= deadline) {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%g",
                          std::chrono::duration<double>(budget).count());
            found.push_back(prefix + "Not asked: the refresh ran out of its " + seconds +
                            " seconds.");
            return;
        }
        try {
            HTTP::Deadline bounded(deadline);
            use(fetch());
        } catch (const std::exception& error) {
            found.push_back(prefix + Redact::secrets(error.what()));
        }
    };
    auto append = [&](std::vector<UsageRecord> fresh) {
        kept.insert(kept.end(), std::make_move_iterator(fresh.begin()),
                    std::make_move_iterator(fresh.end()));
    };
    std::vector<ProviderBalance> fresh;
    auto addBalances = [&](std::vector<ProviderBalance> more) {
        fresh.insert(fresh.end(), more.begin(), more.end());
    };

    call("Anthropic", sources.anthropic, append);
    call("OpenAI", sources.openAI, append);
    call("OpenRouter", sources.openRouterActivity, append);
    call("Cursor", sources.cursor, append);
    call("xAI", sources.xai, addBalances);
    call("DeepSeek", sources.deepSeek, addBalances);
    call("OpenRouter", sources.openRouterCredits, [&](std::optional<ProviderBalance> credit) {
        if (credit) fresh.push_back(std::move(*credit));
    });

    sortNewestFirst(kept);
    records = std::move(kept);
    problems = std::move(found);
    balances = std::move(fresh);
}

}  // namespace usagekit
