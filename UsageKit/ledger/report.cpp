#include "ledger/report.h"

#include "core/json.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>

namespace usagekit::Report {

namespace {

constexpr std::array<std::pair<std::string_view, Grouping>, 6> kNames{{
    {"daily", Grouping::Daily},
    {"weekly", Grouping::Weekly},
    {"monthly", Grouping::Monthly},
    {"session", Grouping::Session},
    {"project", Grouping::Project},
    {"model", Grouping::Model},
}};

std::vector<UsageRecord> kept(const std::vector<UsageRecord>& records, const Options& options) {
    // `until` names a whole local day: the range ends at the next local midnight.
    const std::optional<Date> end =
        options.until ? std::optional(Calendar::addingDays(*options.until, 1)) : std::nullopt;
    const std::unordered_set<std::string> providers(options.providers.begin(),
                                                    options.providers.end());
    std::vector<UsageRecord> list;
    for (const UsageRecord& r : records) {
        if (options.since && r.date < *options.since) continue;
        if (end && r.date >= *end) continue;
        if (!providers.empty() && !providers.contains(r.provider.id)) continue;
        list.push_back(r);
    }
    return list;
}

template <class Key>
auto split(std::vector<UsageRecord> records, Key key) {
    std::unordered_map<std::string, std::vector<UsageRecord>> parts;
    for (UsageRecord& r : records)
        parts[key(r)].push_back(std::move(r));
    return parts;
}

Row makeRow(const UsageLedger& ledger, std::string key, std::string label,
            std::vector<UsageRecord> records, bool breakdown) {
    Row row;
    row.key = std::move(key);
    row.label = std::move(label);
    row.totals = ledger.totals(records);
    std::set<Provider> providers;  // by display name
    std::set<std::string> models;
    for (const UsageRecord& r : records) {
        providers.insert(r.provider);
        models.insert(r.model);
        row.lastActivity = std::max(row.lastActivity, r.date);
    }
    for (const Provider& provider : providers)
        row.providers.push_back(provider.id);
    row.models.assign(models.begin(), models.end());
    if (breakdown) {
        const std::vector<Slice> slices = ledger.byModel(records);
        auto parts = split(std::move(records), GroupKey::model);
        for (const Slice& slice : slices)
            row.byModel.push_back(
                makeRow(ledger, slice.id, slice.label, std::move(parts[slice.id]), false));
    }
    return row;
}

std::vector<Row> periods(const UsageLedger& ledger, std::vector<UsageRecord> records,
                         const Options& options) {
    std::map<double, std::vector<UsageRecord>> byStart;
    for (UsageRecord& r : records) {
        const Date start = options.grouping == Grouping::Daily ? Calendar::startOfDay(r.date)
                           : options.grouping == Grouping::Weekly
                               ? Calendar::startOfWeek(r.date, options.sundayFirst)
                               : Calendar::startOfMonth(r.date);
        byStart[start.secondsSince1970].push_back(std::move(r));
    }
    std::vector<Row> rows;
    for (auto& [start, part] : byStart) {
        const std::string key = options.grouping == Grouping::Monthly
                                    ? Calendar::monthText(Date{start})
                                    : Calendar::dayText(Date{start});
        rows.push_back(makeRow(ledger, key, key, std::move(part), options.breakdown));
    }
    if (!options.ascending.value_or(true)) std::reverse(rows.begin(), rows.end());
    return rows;
}

std::vector<Row> groups(const UsageLedger& ledger, std::vector<UsageRecord> records,
                        const Options& options) {
    std::vector<Slice> slices;
    std::string (*key)(const UsageRecord&) = nullptr;
    switch (options.grouping) {
        case Grouping::Session:
            slices = ledger.bySession(records);
            key = GroupKey::session;
            break;
        case Grouping::Project:
            slices = ledger.byProject(records);
            key = GroupKey::project;
            break;
        default:
            slices = ledger.byModel(records);
            key = GroupKey::model;
    }
    const bool breakdown = options.breakdown && options.grouping != Grouping::Model;
    auto parts = split(std::move(records), key);
    std::vector<Row> rows;
    for (const Slice& slice : slices)
        rows.push_back(
            makeRow(ledger, slice.id, slice.label, std::move(parts[slice.id]), breakdown));
    if (options.ascending.value_or(false)) std::reverse(rows.begin(), rows.end());
    return rows;
}

void writeStrings(JsonWriter& w, const std::vector<std::string>& list) {
    w.beginArray();
    for (const std::string& text : list)
        w.value(text);
    w.endArray();
}

// The figures of the table's totals or, given a row, of that row with its key, label and
// lists; keys in ascending byte order, as the writer wants them.
void writeTotals(JsonWriter& w, const Totals& t, const Row* row, bool breakdown) {
    w.key("billedUSD");
    w.value(t.billedUSD);
    if (row && breakdown) {
        w.key("breakdown");
        w.beginArray();
        for (const Row& sub : row->byModel) {
            w.beginObject();
            writeTotals(w, sub.totals, &sub, false);
            w.endObject();
        }
        w.endArray();
    }
    w.key("cacheRead");
    w.value(t.cacheRead);
    w.key("cacheWrite");
    w.value(t.cacheWrite);
    w.key("calls");
    w.value(t.calls);
    w.key("costUSD");
    w.value(t.allUSD());
    w.key("equivalentUSD");
    w.value(t.equivalentUSD);
    w.key("input");
    w.value(t.uncachedInput);
    if (row) {
        w.key("key");
        w.value(row->key);
        w.key("label");
        w.value(row->label);
        w.key("lastActivity");
        w.value(ISO8601::format(row->lastActivity));
        w.key("models");
        writeStrings(w, row->models);
    }
    w.key("output");
    w.value(t.output);
    if (row) {
        w.key("providers");
        writeStrings(w, row->providers);
    }
    w.key("reasoning");
    w.value(t.reasoning);
    w.key("tokens");
    w.value(t.tokens);
    w.key("unpricedModels");
    writeStrings(w, t.unpricedModels);
}

}  // namespace

std::optional<Grouping> grouping(std::string_view text) {
    for (const auto& [known, value] : kNames)
        if (known == text) return value;
    return std::nullopt;
}

std::string_view name(Grouping grouping) {
    for (const auto& [known, value] : kNames)
        if (value == grouping) return known;
    return "daily";
}

bool isPeriod(Grouping grouping) {
    return grouping == Grouping::Daily || grouping == Grouping::Weekly ||
           grouping == Grouping::Monthly;
}

Table build(const UsageLedger& ledger, const Options& options) {
    std::vector<UsageRecord> records = kept(ledger.records, options);
    Table table;
    table.totals = ledger.totals(records);
    table.rows = isPeriod(options.grouping) ? periods(ledger, std::move(records), options)
                                            : groups(ledger, std::move(records), options);
    return table;
}

std::string json(const Table& table, const Options& options) {
    const bool breakdown = options.breakdown && options.grouping != Grouping::Model;
    JsonWriter w(true);
    w.beginObject();
    w.key("report");
    w.value(name(options.grouping));
    w.key("rows");
    w.beginArray();
    for (const Row& row : table.rows) {
        w.beginObject();
        writeTotals(w, row.totals, &row, breakdown);
        w.endObject();
    }
    w.endArray();
    if (options.since) {
        w.key("since");
        w.value(Calendar::dayText(*options.since));
    }
    w.key("totals");
    w.beginObject();
    writeTotals(w, table.totals, nullptr, false);
    w.endObject();
    if (options.until) {
        w.key("until");
        w.value(Calendar::dayText(*options.until));
    }
    if (options.grouping == Grouping::Weekly) {
        w.key("weekStart");
        w.value(options.sundayFirst ? "sunday" : "monday");
    }
    w.endObject();
    return w.take();
}

}  // namespace usagekit::Report
