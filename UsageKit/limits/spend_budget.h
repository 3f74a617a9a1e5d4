// Spend budgets: caps on the money spent in the current day or month, on all providers or
// on one; how much of each is used, which of the 80% and 100% thresholds were newly
// crossed, and the notifications that announce them once per budget, period and threshold.
// Missing or unreadable budget and announced files read as empty lists (a budgets file
// that does not decode is moved aside first); saves never fail loudly. BudgetMath is pure.
#pragma once

#include "core/date.h"
#include "core/json.h"
#include "core/pricing.h"
#include "core/usage_record.h"
#include "limits/notifier.h"

#include <array>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace usagekit {

struct SpendBudget {
    enum class Period { day, month };
    static constexpr std::array<Period, 2> allPeriods{Period::day, Period::month};
    static std::string rawValue(Period period);  // "day", "month"
    static std::string title(Period period);     // "Day", "Month"
    static std::optional<Period> periodNamed(std::string_view rawValue);

    std::string id;
    std::string label;
    std::optional<std::string> providerID;  // absent: every provider counts
    Period period = Period::month;
    double capUSD = 0;

    // What the settings window's add buttons create: "This month" at $200 or "Today" at
    // $20, on every provider, with a fresh UUID.
    static SpendBudget newBudget(Period period);

    static std::filesystem::path file();  // "budgets.json"
    static std::vector<SpendBudget> load();
    static void save(const std::vector<SpendBudget>& budgets);

    bool operator==(const SpendBudget&) const = default;
    void encode(JsonWriter& writer) const;  // "providerID" is left out when absent
    static std::optional<SpendBudget> decode(const JSON& json);
};

struct BudgetReading {
    SpendBudget budget;
    double spentUSD = 0;

    const std::string& id() const { return budget.id; }
    bool operator==(const BudgetReading&) const = default;
};

struct BudgetCrossing {
    BudgetReading reading;
    int threshold = 0;  // percent: 80 or 100
    // <budget id>|<period start, whole seconds since 1970>|<threshold>
    std::string key;
};

namespace BudgetMath {

// Start of the local day, or the first instant of the local month, containing `now`.
Date start(SpendBudget::Period period, Date now);

// One reading per budget, in order: the cost of the rows dated at or after the period
// start (of the budget's provider only, when it names one).
std::vector<BudgetReading> readings(const std::vector<SpendBudget>& budgets,
                                    const std::vector<UsageRecord>& rows, const Pricing& pricing,
                                    Date now);

// Each threshold (80, then 100) a reading has reached whose key is not in `announced`. A
// budget whose cap is not above 0 never crosses.
std::vector<BudgetCrossing> crossings(const std::vector<BudgetReading>& readings,
                                      const std::set<std::string>& announced, Date now);

}  // namespace BudgetMath

// The keys of budget crossings already announced, kept across launches in
// "budget-announced.json" as {"keys": [...]}. The list only grows.
struct Announced {
    std::vector<std::string> keys;

    static std::filesystem::path file();
    static Announced load();
    void save() const;

    bool operator==(const Announced&) const = default;
    void encode(JsonWriter& writer) const;
    static std::optional<Announced> decode(const JSON& json);
};

namespace BudgetNotifier {

// "Claude is at 80%" / "$16.40 of $20.00 this day." / "tally.budget.<key>".
Notification notification(const BudgetCrossing& crossing);

// Announces `crossings` in order: asks for permission (without waiting on the answer),
// then for each one records its key in `announced` and posts its notification, and finally
// saves `announced`. A key is recorded whether or not the user lets the alert show, so a
// threshold is announced at most once. No crossings: nothing happens.
void announce(const std::vector<BudgetCrossing>& crossings, Announced& announced,
              Notifier& notifier);

}  // namespace BudgetNotifier

}  // namespace usagekit
