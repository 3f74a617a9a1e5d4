#include "core/checked.h"
#include "core/text.h"
#include "ledger/usage_ledger.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

namespace usagekit {

namespace {

// A record's token total, or nothing for one whose counts overflow (it is left out).
std::optional<int64_t> tokensOf(const UsageRecord& r) {
    try {
        return r.total();
    } catch (const OutOfRange&) {
        return std::nullopt;
    }
}

// Each model's rate, looked up once: a ledger holds thousands of records of a few models,
// and a lookup lower-cases the name and may walk the whole table. Keys view the records'
// model names, which must outlive the memo.
class RateMemo {
  public:
    explicit RateMemo(const Pricing& pricing) : m_pricing(pricing) {}

    struct Price {
        double cost = 0;
        bool unpriced = false;
    };
    // The record's cost, as UsageLedger::cost() gives it, and whether it is unpriced.
    Price price(const UsageRecord& r) {
        if (r.reportedCostUSD) return {*r.reportedCostUSD, false};
        const auto& rate = of(r.model);
        return rate ? Price{Pricing::costAt(r, *rate), false} : Price{0, true};
    }

  private:
    const std::optional<Rate>& of(const std::string& model) {
        auto [it, inserted] = m_rates.try_emplace(model);
        if (inserted) it->second = m_pricing.rate(model);
        return it->second;
    }

    const Pricing& m_pricing;
    std::unordered_map<std::string_view, std::optional<Rate>> m_rates;
};

}  // namespace

bool UsageLedger::isUnpriced(const UsageRecord& record) const {
    return !record.reportedCostUSD && !pricing.knowsRate(record.model);
}

Totals UsageLedger::totals(std::span<const UsageRecord> list) const {
    Totals t;
    std::set<std::string> unpriced;
    RateMemo rates(pricing);
    for (const UsageRecord& r : list) {
        // A record whose counts would overflow the sums is left out whole.
        try {
            Totals next = t;
            next.tokens = checkedAdd(t.tokens, r.total());
            next.calls = checkedAdd(t.calls, r.calls);
            next.uncachedInput = checkedAdd(t.uncachedInput, r.input);
            next.cacheRead = checkedAdd(t.cacheRead, r.cacheRead);
            next.cacheWrite = checkedAdd(t.cacheWrite, r.cacheWrite);
            next.output = checkedAdd(t.output, r.output);
            next.reasoning = checkedAdd(t.reasoning, r.reasoning);
            t.tokens = next.tokens;
            t.calls = next.calls;
            t.uncachedInput = next.uncachedInput;
            t.cacheRead = next.cacheRead;
            t.cacheWrite = next.cacheWrite;
            t.output = next.output;
            t.reasoning = next.reasoning;
        } catch (const OutOfRange&) {
            continue;
        }
        const auto price = rates.price(r);
        if (r.provider.isMetered())
            t.billedUSD += price.cost;
        else
            t.equivalentUSD += price.cost;
        if (price.unpriced) unpriced.insert(r.model);
    }
    t.unpricedModels.assign(unpriced.begin(), unpriced.end());
    return t;
}

std::vector<Slice> UsageLedger::group(const std::vector<UsageRecord>& list, const KeyFunction& key,
                                      const KeyFunction& label,
                                      const MeteredFunction& metered) const {
    std::vector<Slice> slices;
    std::unordered_map<std::string, size_t> index;
    RateMemo rates(pricing);
    for (const UsageRecord& r : list) {
        const auto tokens = tokensOf(r);
        if (!tokens) continue;
        std::string k = key(r);
        auto [it, inserted] = index.try_emplace(k, slices.size());
        if (inserted) {
            Slice slice;
            slice.id = std::move(k);
            slice.label = label(r);
            slice.metered = metered(r);
            slices.push_back(std::move(slice));
        }
        Slice& slice = slices[it->second];
        int64_t sumTokens, sumCalls;
        if (__builtin_add_overflow(slice.tokens, *tokens, &sumTokens) ||
            __builtin_add_overflow(slice.calls, r.calls, &sumCalls))
            continue;
        slice.tokens = sumTokens;
        slice.calls = sumCalls;
        const auto price = rates.price(r);
        slice.costUSD += price.cost;
        if (price.unpriced) slice.unpriced = true;
    }
    std::stable_sort(slices.begin(), slices.end(),
                     [](const Slice& a, const Slice& b) { return a.tokens > b.tokens; });
    return slices;
}

namespace {
bool providerMetered(const UsageRecord& r) {
    return r.provider.isMetered();
}
}  // namespace

std::string GroupKey::model(const UsageRecord& record) {
    return record.provider.id + "|" + record.model;
}

std::string GroupKey::project(const UsageRecord& record) {
    return record.projectName();
}

std::string GroupKey::session(const UsageRecord& record) {
    return record.session.value_or(std::string());
}

std::vector<Slice> UsageLedger::byProvider(const std::vector<UsageRecord>& list) const {
    return group(
        list, [](const UsageRecord& r) { return r.provider.id; },
        [](const UsageRecord& r) { return r.provider.name(); }, providerMetered);
}

std::vector<Slice> UsageLedger::byModel(const std::vector<UsageRecord>& list) const {
    return group(
        list, GroupKey::model, [](const UsageRecord& r) { return r.model; }, providerMetered);
}

std::vector<Slice> UsageLedger::byProject(const std::vector<UsageRecord>& list) const {
    return group(list, GroupKey::project, GroupKey::project, providerMetered);
}

std::vector<Slice> UsageLedger::byKind(const std::vector<UsageRecord>& list) const {
    auto kind = [](const UsageRecord& r) { return r.kind; };
    return group(list, kind, kind, providerMetered);
}

std::vector<Slice> UsageLedger::bySession(const std::vector<UsageRecord>& list) const {
    return group(
        list, GroupKey::session,
        [](const UsageRecord& r) {
            std::string session = r.session.value_or(std::string());
            if (Text::characterCount(session) >= 11)
                session = Text::firstCharacters(session, 8) + "\u2026";
            std::string project = r.projectName();
            return project == "\u2014" ? session : project + " \u00B7 " + session;
        },
        providerMetered);
}

double UsageLedger::cacheSavings(const std::vector<UsageRecord>& list) const {
    double saved = 0;
    for (const UsageRecord& r : list)
        if (auto rate = pricing.rate(r.model))
            saved += (rate->input - rate->cacheRead) * static_cast<double>(r.cacheRead) / 1'000'000;
    return saved;
}

std::vector<Point> UsageLedger::daily(const std::vector<UsageRecord>& list,
                                      std::optional<Date> from, std::optional<Date> through) const {
    // day → provider → point, in the order providers first appear on that day
    std::map<double, std::vector<Point>> byDay;
    for (const UsageRecord& r : list) {
        const auto tokens = tokensOf(r);
        if (!tokens) continue;
        std::vector<Point>& points = byDay[Calendar::startOfDay(r.date).secondsSince1970];
        auto it = std::find_if(points.begin(), points.end(),
                               [&](const Point& p) { return p.provider == r.provider; });
        if (it == points.end()) {
            points.push_back(Point{Calendar::startOfDay(r.date), r.provider, 0, 0});
            it = points.end() - 1;
        }
        int64_t sum;
        if (__builtin_add_overflow(it->tokens, *tokens, &sum)) continue;
        it->tokens = sum;
        it->costUSD += cost(r);
    }
    if (byDay.empty()) return {};
    const double first =
        Calendar::startOfDay(from.value_or(Date{byDay.begin()->first})).secondsSince1970;
    const double last =
        Calendar::startOfDay(through.value_or(Date{byDay.rbegin()->first})).secondsSince1970;

    std::vector<Point> series;
    for (auto it = byDay.lower_bound(first); it != byDay.end() && it->first <= last; ++it) {
        std::vector<Point> points = it->second;
        std::stable_sort(points.begin(), points.end(),
                         [](const Point& a, const Point& b) { return a.provider < b.provider; });
        series.insert(series.end(), points.begin(), points.end());
    }
    return series;
}

std::vector<Point> UsageLedger::dailyTotals(const std::vector<UsageRecord>& list, int64_t days,
                                            Date now) const {
    const Provider all("all");
    std::map<double, Point> summed;
    for (const Point& p : daily(list)) {
        Point& into =
            summed.try_emplace(p.day.secondsSince1970, Point{p.day, all, 0, 0}).first->second;
        int64_t sum;
        if (__builtin_add_overflow(into.tokens, p.tokens, &sum)) continue;
        into.tokens = sum;
        into.costUSD += p.costUSD;
    }
    const int n = static_cast<int>(std::clamp<int64_t>(days, 1, 100'000));
    const Date today = Calendar::startOfDay(now);
    std::vector<Point> series;
    series.reserve(static_cast<size_t>(n));
    for (int offset = -(n - 1); offset <= 0; ++offset) {
        const Date day = Calendar::addingDays(today, offset);
        auto it = summed.find(day.secondsSince1970);
        series.push_back(it != summed.end() ? it->second : Point{day, all, 0, 0});
    }
    return series;
}

}  // namespace usagekit
