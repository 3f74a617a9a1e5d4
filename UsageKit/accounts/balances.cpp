#include "accounts/balances.h"

#include "accounts/endpoints.h"
#include "accounts/http.h"
#include "accounts/keychain.h"
#include "accounts/keyed_request.h"
#include "core/checked.h"

#include <cstdio>

namespace usagekit {

namespace {

std::string money(double amount) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "$%.2f", amount);
    return buffer;
}

// xAI answers in cents. Any failure (a refused key, a wrong team, no network) leaves the
// figure out rather than reporting a problem: the team id is easy to get wrong.
std::optional<JSONDocument> quietly(const std::string& address, const std::string& key) {
    auto url = HTTP::url(address, {});
    if (!url) return std::nullopt;
    try {
        return HTTP::get(*url, KeyedRequest::bearer(key), KeyedRequest::kSeconds);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<UsageRecord> activityRecord(JSON row) {
    if (!row.isObject()) return std::nullopt;
    auto text = row["date"].string();
    if (!text) return std::nullopt;
    auto date = OpenRouterSource::day(*text);
    if (!date) return std::nullopt;
    UsageRecord r;
    if (auto slug = row["model_permaslug"].string())
        r.model = std::string(*slug);
    else if (auto model = row["model"].string())
        r.model = std::string(*model);
    else
        r.model = "openrouter";
    r.id = "openrouter-" + std::string(*text) + "-" + r.model;
    r.date = *date;
    r.provider = Provider::openRouter;
    r.kind = "api";
    r.calls = row["requests"].integer();
    r.input = row["prompt_tokens"].integer();
    r.output = row["completion_tokens"].integer();
    r.reasoning = row["reasoning_tokens"].integer();
    r.reportedCostUSD = row["usage"].number();
    // A row that only cost money (tokens not reported) still counts.
    const bool paid = r.reportedCostUSD && *r.reportedCostUSD > 0;
    if (checkedAdd(r.input, r.output) < 1 && !paid) return std::nullopt;
    return r;
}

}  // namespace

std::string ProviderBalance::figure() const {
    if (currency == "USD") return money(amountUSD);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.2f ", amountUSD);
    return buffer + currency;
}

std::vector<ProviderBalance> XAIBillingSource::fetch() {
    auto key = Keychain::get(keyAccount);
    auto team = Keychain::get(teamAccount);
    if (!key || !team) return {};
    // The team id goes into the path exactly as stored; one that makes no valid URL
    // simply gives no figures.
    const std::string base = Endpoints::xai() + "/v1/billing/teams/" + *team;
    std::vector<ProviderBalance> out;
    if (auto prepaid = quietly(base + "/prepaid/balance", *key)) {
        JSON total = prepaid->root()["total"];
        const double cents = total.isObject() ? total["val"].number().value_or(0) : 0;
        out.push_back({Provider::xai, "Prepaid balance", cents / 100, "USD", "credits remaining"});
    }
    if (auto invoice = quietly(base + "/postpaid/invoice/preview", *key)) {
        const double cents = invoice->root()["amountBeforeVat"].number().value_or(0);
        out.push_back({Provider::xai, "This period", cents / 100, "USD", "before VAT"});
    }
    return out;
}

std::optional<ProviderBalance> OpenRouterSource::credits() {
    auto answer = KeyedRequest::get(keyAccount, Endpoints::openRouter() + "/api/v1/credits");
    return answer ? creditsBalance(answer->root()) : std::nullopt;
}

std::optional<ProviderBalance> OpenRouterSource::creditsBalance(JSON answer) {
    JSON data = answer["data"];
    JSON figures;  // absent: both figures missing
    if (data.isObject())
        figures = data;
    else if (!data.hasValue())
        figures = answer;
    const double total = figures["total_credits"].number().value_or(0);
    const auto usage = figures["total_usage"].number();
    double amount = 0;
    if (usage) {
        if (total <= 0 && *usage <= 0) return std::nullopt;
        amount = total - *usage;
        if (!(amount >= 0)) amount = 0;  // overspent, or not a number
    } else {
        if (!(total > 0)) return std::nullopt;
        amount = total;
    }
    return ProviderBalance{Provider::openRouter, "Credits left", amount, "USD",
                           "of " + money(total) + " purchased"};
}

std::vector<UsageRecord> OpenRouterSource::fetch() {
    auto answer = KeyedRequest::get(keyAccount, Endpoints::openRouter() + "/api/v1/activity");
    return answer ? records(answer->root()) : std::vector<UsageRecord>();
}

std::vector<UsageRecord> OpenRouterSource::records(JSON answer) {
    JSON rows = answer["data"].isArray() ? answer["data"] : answer;
    std::vector<UsageRecord> out;
    for (JSON row : rows.array()) {
        try {
            if (auto r = activityRecord(row)) out.push_back(std::move(*r));
        } catch (const OutOfRange&) {
            // A count beyond 64 bits spoils only its own row.
        }
    }
    return out;
}

std::optional<Date> OpenRouterSource::day(std::string_view text) {
    // Exactly "yyyy-MM-dd": a date with a time part is not a day.
    if (text.size() != 10) return std::nullopt;
    return ISO8601::parse(std::string(text) + "T00:00:00Z");
}

std::vector<ProviderBalance> DeepSeekSource::fetch() {
    auto answer = KeyedRequest::get(keyAccount, Endpoints::deepSeek() + "/user/balance");
    return answer ? balances(answer->root()) : std::vector<ProviderBalance>();
}

std::vector<ProviderBalance> DeepSeekSource::balances(JSON answer) {
    std::vector<ProviderBalance> out;
    for (JSON entry : answer["balance_infos"].array()) {
        // number() reads a string only when it is wholly a decimal number, as the amounts
        // come ("110.00"); "abc" or " 1" gives nothing and the entry is skipped.
        auto amount = entry["total_balance"].number();
        if (!amount) continue;
        auto toppedUp = entry["topped_up_balance"].string();
        out.push_back(
            {Provider::deepSeek, "Balance", *amount,
             std::string(entry["currency"].string().value_or("USD")),
             toppedUp && !toppedUp->empty() ? std::string(*toppedUp) + " topped up" : "available"});
    }
    return out;
}

}  // namespace usagekit
