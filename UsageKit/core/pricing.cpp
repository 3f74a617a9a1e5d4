#include "core/pricing.h"

#include "core/json_coding.h"
#include "core/paths.h"
#include "core/store.h"
#include "core/text.h"

namespace usagekit {

Rate::Rate(double in, double out, std::optional<double> read, std::optional<double> write)
    : input(in),
      output(out),
      cacheRead(read ? *read : in * 0.1),
      cacheWrite(write ? *write : in * 1.25) {}

void Rate::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("cacheRead");
    w.value(cacheRead);
    w.key("cacheWrite");
    w.value(cacheWrite);
    w.key("input");
    w.value(input);
    w.key("output");
    w.value(output);
    w.endObject();
}

std::optional<Rate> Rate::decode(const JSON& json) {
    auto in = Decode::number(json["input"]);
    auto out = Decode::number(json["output"]);
    auto read = Decode::number(json["cacheRead"]);
    auto write = Decode::number(json["cacheWrite"]);
    if (!in || !out || !read || !write) return std::nullopt;
    return Rate(*in, *out, *read, *write);
}

const Pricing& Pricing::builtIn() {
    static const Pricing table = [] {
        Pricing p;
        p.updated = "2026-09-13";
        p.source =
            "Anthropic rows from the Claude API reference; OpenAI rows from OpenAI's pricing "
            "page, 2026-09-13; Grok assumed \u2014 edit in Settings.";
        p.rates = {
            {"claude-fable-5-1", Rate(10, 50)},
            {"claude-fable-5", Rate(10, 50)},
            {"claude-opus-5", Rate(5, 25)},
            {"claude-opus-4-8", Rate(5, 25)},
            {"claude-opus-4-7", Rate(5, 25)},
            {"claude-opus-4-6", Rate(5, 25)},
            {"claude-sonnet-5", Rate(2, 10)},
            {"claude-sonnet-4-6", Rate(3, 15)},
            {"claude-haiku-4-5", Rate(1, 5)},
            {"gpt-6-astra", Rate(10, 50, std::nullopt, 10)},
            {"gpt-5.6-sol", Rate(4, 20, std::nullopt, 4)},
            {"gpt-5.6-terra", Rate(2, 12, std::nullopt, 2)},
            {"gpt-5.6-luna", Rate(0.2, 1.2, 0.02, 0.2)},
            {"gpt-5.5", Rate(5, 30, std::nullopt, 5)},
            {"gpt-5", Rate(1.25, 10, std::nullopt, 1.25)},
            {"grok-4.6", Rate(3, 15)},
            {"grok-4.5", Rate(3, 15)},
            {"gemini-2.5-pro", Rate(1.25, 10, std::nullopt, 1.25)},
            {"gemini-2.5-flash", Rate(0.15, 0.6, std::nullopt, 0.15)},
            {"gemini-2.0-flash", Rate(0.1, 0.4, 0.025, 0.1)},
            {"deepseek-chat", Rate(0.27, 1.1, 0.07, 0.27)},
            {"deepseek-reasoner", Rate(0.55, 2.19, 0.14, 0.55)},
        };
        return p;
    }();
    return table;
}

std::filesystem::path Pricing::file() {
    return TallyPaths::state("pricing.json");
}

Pricing Pricing::load() {
    auto loaded = Store::loadOrMoveAside<Pricing>(file());
    if (!loaded) return builtIn();
    // The file wins row by row; built-in rows it lacks come back (newer models included).
    for (const auto& [key, rate] : builtIn().rates)
        loaded->rates.emplace(key, rate);
    return *loaded;
}

void Pricing::save() const {
    Store::saveQuietly(*this, file());
}

namespace {

void removeAll(std::string& text, std::string_view what) {
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at))
        text.erase(at, what.size());
}

}  // namespace

std::optional<Rate> Pricing::rate(std::string_view model) const {
    std::string name = Text::lowercased(model);
    // The order matters: once "anthropic." is gone, "us.anthropic." can no longer match,
    // so Bedrock's regional names stay unpriced while "anthropic.<model>" is priced.
    removeAll(name, "anthropic.");
    removeAll(name, "us.anthropic.");

    if (auto exact = rates.find(name); exact != rates.end()) return exact->second;
    const Rate* best = nullptr;
    size_t bestLength = 0;
    for (const auto& [key, rate] : rates) {
        if (name.size() > key.size() && name.compare(0, key.size(), key) == 0 &&
            name[key.size()] == '-' && (!best || key.size() > bestLength)) {
            best = &rate;
            bestLength = key.size();
        }
    }
    if (!best) return std::nullopt;
    return *best;
}

double Pricing::cost(const UsageRecord& record) const {
    if (record.reportedCostUSD) return *record.reportedCostUSD;
    auto found = rate(record.model);
    return found ? costAt(record, *found) : 0;
}

double Pricing::costAt(const UsageRecord& record, const Rate& rate) {
    // Codex's output count already includes its reasoning tokens.
    const int64_t reasoning = record.provider.id == "codex-cli" ? 0 : record.reasoning;
    int64_t billable;
    double billableOutput =
        __builtin_add_overflow(record.output, reasoning, &billable)
            ? static_cast<double>(record.output) + static_cast<double>(reasoning)
            : static_cast<double>(billable);
    return rate.input * (static_cast<double>(record.input) / 1'000'000) +
           rate.output * (billableOutput / 1'000'000) +
           rate.cacheRead * (static_cast<double>(record.cacheRead) / 1'000'000) +
           rate.cacheWrite * (static_cast<double>(record.cacheWrite) / 1'000'000);
}

void Pricing::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("rates");
    w.beginObject();
    for (const auto& [key, rate] : rates) {
        w.key(key);
        rate.encode(w);
    }
    w.endObject();
    w.key("source");
    w.value(source);
    w.key("updated");
    w.value(updated);
    w.endObject();
}

std::optional<Pricing> Pricing::decode(const JSON& json) {
    auto updated = Decode::string(json["updated"]);
    auto source = Decode::string(json["source"]);
    JSON rates = json["rates"];
    if (!updated || !source || !rates.isObject()) return std::nullopt;
    Pricing pricing;
    pricing.updated = std::move(*updated);
    pricing.source = std::move(*source);
    for (const auto& [key, value] : rates.members()) {
        auto rate = Rate::decode(value);
        if (!rate) return std::nullopt;  // one bad row discards the whole file
        pricing.rates[std::string(key)] = *rate;
    }
    return pricing;
}

double cost(const std::vector<UsageRecord>& records, const Pricing& pricing) {
    double sum = 0.0;
    for (const auto& record : records)
        sum += pricing.cost(record);
    return sum;
}

double cost(const std::vector<UsageRecord>& records, const Pricing& pricing, bool metered) {
    double sum = 0.0;
    for (const auto& record : records)
        if (record.provider.isMetered() == metered) sum += pricing.cost(record);
    return sum;
}

}  // namespace usagekit
