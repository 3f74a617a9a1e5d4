// Money read from provider accounts: xAI's prepaid credit and current invoice, OpenRouter's
// credits left and daily activity, DeepSeek's balance per currency. Each reader uses a key
// the user stored (Keychain); without it nothing is sent and nothing comes back. Answers of
// the wrong shape give empty results. xAI swallows every request failure (a wrong key
// shows as a missing figure); OpenRouter and DeepSeek throw HTTP::Err and
// HTTP::TransportError for the ledger to report.
#pragma once

#include "core/date.h"
#include "core/json.h"
#include "core/provider.h"
#include "core/usage_record.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace usagekit {

struct ProviderBalance {
    Provider provider;
    std::string label;     // "Prepaid balance", "This period", "Credits left", "Balance"
    double amountUSD = 0;  // in `currency` when that is not "USD"
    std::string currency = "USD";
    std::string detail;

    std::string id() const { return provider.id + "|" + label; }
    // "$12.30" for exactly "USD", else "110.00 CNY".
    std::string figure() const;

    bool operator==(const ProviderBalance&) const = default;
};

struct XAIBillingSource {
    static constexpr const char* keyAccount = "xai-management-key";
    static constexpr const char* teamAccount = "xai-team-id";

    // At most two entries, prepaid first. Never throws for HTTP or network failures.
    static std::vector<ProviderBalance> fetch();
};

struct OpenRouterSource {
    static constexpr const char* keyAccount = "openrouter-management-key";

    // Credits left, or nothing when none were ever bought or used.
    static std::optional<ProviderBalance> credits();
    // Daily activity as records of "openrouter".
    static std::vector<UsageRecord> fetch();
    // Never throw.
    static std::vector<UsageRecord> records(JSON answer);
    static std::optional<ProviderBalance> creditsBalance(JSON answer);
    // Midnight UTC of a "yyyy-MM-dd" text; the whole text must be that date.
    static std::optional<Date> day(std::string_view text);
};

struct DeepSeekSource {
    static constexpr const char* keyAccount = "deepseek-api-key";

    static std::vector<ProviderBalance> fetch();
    // One balance per entry with a usable amount, in answer order. Never throws.
    static std::vector<ProviderBalance> balances(JSON answer);
};

}  // namespace usagekit
