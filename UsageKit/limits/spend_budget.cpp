#include "limits/spend_budget.h"

#include "core/checked.h"
#include "core/json_coding.h"
#include "core/paths.h"
#include "core/store.h"
#include "core/uuid.h"
#include "ledger/fmt.h"
#include "limits/string_list.h"

namespace usagekit {

std::string SpendBudget::rawValue(Period period) {
    return period == Period::day ? "day" : "month";
}

std::string SpendBudget::title(Period period) {
    return period == Period::day ? "Day" : "Month";
}

std::optional<SpendBudget::Period> SpendBudget::periodNamed(std::string_view rawValue) {
    if (rawValue == "day") return Period::day;
    if (rawValue == "month") return Period::month;
    return std::nullopt;
}

SpendBudget SpendBudget::newBudget(Period period) {
    SpendBudget budget;
    budget.id = randomUUID();
    budget.period = period;
    budget.label = period == Period::month ? "This month" : "Today";
    budget.capUSD = period == Period::month ? 200 : 20;
    return budget;
}

std::filesystem::path SpendBudget::file() {
    return TallyPaths::state("budgets.json");
}

std::vector<SpendBudget> SpendBudget::load() {
    return Store::loadOrMoveAside<std::vector<SpendBudget>>(file()).value_or(
        std::vector<SpendBudget>());
}

void SpendBudget::save(const std::vector<SpendBudget>& budgets) {
    Store::saveQuietly(budgets, file());
}

void SpendBudget::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("capUSD");
    w.value(capUSD);
    w.key("id");
    w.value(id);
    w.key("label");
    w.value(label);
    w.key("period");
    w.value(rawValue(period));
    if (providerID) {
        w.key("providerID");
        w.value(*providerID);
    }
    w.endObject();
}

std::optional<SpendBudget> SpendBudget::decode(const JSON& json) {
    auto id = Decode::string(json["id"]);
    auto label = Decode::string(json["label"]);
    auto providerID = Decode::optionalString(json["providerID"]);
    auto periodText = Decode::string(json["period"]);
    auto cap = Decode::number(json["capUSD"]);
    if (!id || !label || !providerID || !periodText || !cap) return std::nullopt;
    auto period = periodNamed(*periodText);
    if (!period) return std::nullopt;
    return SpendBudget{*id, *label, *providerID, *period, *cap};
}

Date BudgetMath::start(SpendBudget::Period period, Date now) {
    return period == SpendBudget::Period::day ? Calendar::startOfDay(now)
                                              : Calendar::startOfMonth(now);
}

std::vector<BudgetReading> BudgetMath::readings(const std::vector<SpendBudget>& budgets,
                                                const std::vector<UsageRecord>& rows,
                                                const Pricing& pricing, Date now) {
    std::vector<BudgetReading> out;
    out.reserve(budgets.size());
    for (const SpendBudget& budget : budgets) {
        Date since = start(budget.period, now);
        double spent = 0.0;
        for (const UsageRecord& row : rows) {
            if (row.date < since) continue;
            if (budget.providerID && row.provider.id != *budget.providerID) continue;
            spent += pricing.cost(row);
        }
        out.push_back(BudgetReading{budget, spent});
    }
    return out;
}

std::vector<BudgetCrossing> BudgetMath::crossings(const std::vector<BudgetReading>& readings,
                                                  const std::set<std::string>& announced,
                                                  Date now) {
    static constexpr int kThresholds[] = {80, 100};
    std::vector<BudgetCrossing> out;
    for (const BudgetReading& reading : readings) {
        const SpendBudget& budget = reading.budget;
        // A period start comes from the local calendar, so it always fits 64 bits.
        int64_t since = truncatedCount(start(budget.period, now).secondsSince1970);
        double percent = budget.capUSD > 0 ? reading.spentUSD / budget.capUSD * 100 : 0;
        for (int threshold : kThresholds) {
            std::string key =
                budget.id + "|" + std::to_string(since) + "|" + std::to_string(threshold);
            if (percent >= threshold && !announced.contains(key))
                out.push_back(BudgetCrossing{reading, threshold, std::move(key)});
        }
    }
    return out;
}

std::filesystem::path Announced::file() {
    return TallyPaths::state("budget-announced.json");
}

Announced Announced::load() {
    return Store::load<Announced>(file()).value_or(Announced());
}

void Announced::save() const {
    Store::saveQuietly(*this, file());
}

void Announced::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("keys");
    StringList::encode(w, keys);
    w.endObject();
}

std::optional<Announced> Announced::decode(const JSON& json) {
    auto keys = StringList::decode(json["keys"]);
    if (!keys) return std::nullopt;
    return Announced{std::move(*keys)};
}

Notification BudgetNotifier::notification(const BudgetCrossing& crossing) {
    const SpendBudget& budget = crossing.reading.budget;
    return Notification{
        "tally.budget." + crossing.key,
        budget.label + " is at " + std::to_string(crossing.threshold) + "%",
        Fmt::cents(crossing.reading.spentUSD) + " of " + Fmt::cents(budget.capUSD) + " this " +
            SpendBudget::rawValue(budget.period) + ".",
    };
}

void BudgetNotifier::announce(const std::vector<BudgetCrossing>& crossings, Announced& announced,
                              Notifier& notifier) {
    if (crossings.empty()) return;
    notifier.requestAuthorization();
    for (const BudgetCrossing& crossing : crossings) {
        announced.keys.push_back(crossing.key);
        notifier.post(notification(crossing));
    }
    announced.save();
}

}  // namespace usagekit
