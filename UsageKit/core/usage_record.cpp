#include "core/usage_record.h"

#include "core/checked.h"
#include "core/json_coding.h"

namespace usagekit {

int64_t UsageRecord::total() const {
    return checkedAdd(checkedAdd(checkedAdd(input, output), cacheRead), cacheWrite);
}

int64_t UsageRecord::read() const {
    return checkedAdd(checkedAdd(input, cacheRead), cacheWrite);
}

std::string UsageRecord::projectName() const {
    if (!project || project->empty()) return "\u2014";
    std::string_view path = *project;
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    if (path == "/") return "/";
    size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

void UsageRecord::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("cacheRead");
    w.value(cacheRead);
    w.key("cacheWrite");
    w.value(cacheWrite);
    w.key("calls");
    w.value(calls);
    w.key("date");
    Encode::date(w, date);
    w.key("id");
    w.value(id);
    w.key("input");
    w.value(input);
    w.key("kind");
    w.value(kind);
    w.key("model");
    w.value(model);
    w.key("output");
    w.value(output);
    if (project) {
        w.key("project");
        w.value(*project);
    }
    w.key("provider");
    provider.encode(w);
    w.key("reasoning");
    w.value(reasoning);
    if (reportedCostUSD) {
        w.key("reportedCostUSD");
        w.value(*reportedCostUSD);
    }
    if (session) {
        w.key("session");
        w.value(*session);
    }
    w.endObject();
}

std::optional<UsageRecord> UsageRecord::decode(const JSON& json) {
    if (!json.isObject()) return std::nullopt;
    UsageRecord r;
    auto id = Decode::string(json["id"]);
    auto date = Decode::date(json["date"]);
    auto provider = Provider::decode(json["provider"]);
    auto model = Decode::string(json["model"]);
    auto kind = Decode::string(json["kind"]);
    auto project = Decode::optionalString(json["project"]);
    auto session = Decode::optionalString(json["session"]);
    auto cost = Decode::optionalNumber(json["reportedCostUSD"]);
    if (!id || !date || !provider || !model || !kind || !project || !session || !cost)
        return std::nullopt;

    struct Count {
        const char* key;
        int64_t* field;
    };
    const Count counts[] = {{"calls", &r.calls},           {"input", &r.input},
                            {"output", &r.output},         {"cacheRead", &r.cacheRead},
                            {"cacheWrite", &r.cacheWrite}, {"reasoning", &r.reasoning}};
    for (const Count& count : counts) {
        auto value = Decode::integer(json[count.key]);
        if (!value) return std::nullopt;
        *count.field = *value;
    }
    // A hand-edited file must not smuggle in counts whose sums overflow later.
    try {
        (void)r.total();
        (void)r.read();
    } catch (const OutOfRange&) {
        return std::nullopt;
    }

    r.id = std::move(*id);
    r.date = *date;
    r.provider = std::move(*provider);
    r.model = std::move(*model);
    r.kind = std::move(*kind);
    r.project = std::move(*project);
    r.session = std::move(*session);
    r.reportedCostUSD = *cost;
    return r;
}

namespace {

enum Field : unsigned {
    kId,
    kDate,
    kProvider,
    kModel,
    kKind,
    kProject,
    kSession,
    kCost,
    kCalls,
    kInput,
    kOutput,
    kCacheRead,
    kCacheWrite,
    kReasoning,
    kFieldCount
};
constexpr std::string_view kFieldNames[kFieldCount] = {
    "id",      "date",      "provider",        "model",    "kind",
    "project", "session",   "reportedCostUSD", "calls",    "input",
    "output",  "cacheRead", "cacheWrite",      "reasoning"};

}  // namespace

std::optional<UsageRecord> UsageRecord::decode(simdjson::ondemand::value json) {
    namespace OnDemand = Decode::OnDemand;
    UsageRecord r;
    int64_t* const counts[] = {&r.calls,     &r.input,      &r.output,
                               &r.cacheRead, &r.cacheWrite, &r.reasoning};
    unsigned seen = 0;
    const bool decoded = OnDemandJSON::forEachField(
        json, [&](std::string_view key, simdjson::ondemand::value value) {
            unsigned which = 0;
            while (which < kFieldCount && kFieldNames[which] != key)
                ++which;
            // A repeated key is passed over: the first occurrence is the one that counts.
            if (which == kFieldCount || (seen & (1u << which))) return true;
            seen |= 1u << which;
            switch (which) {
                case kId:
                case kModel:
                case kKind: {
                    auto text = OnDemand::string(value);
                    if (text) (which == kId ? r.id : which == kModel ? r.model : r.kind) = *text;
                    return text.has_value();
                }
                case kDate: {
                    auto date = OnDemand::date(value);
                    if (date) r.date = *date;
                    return date.has_value();
                }
                case kProvider: {
                    auto provider = Provider::decode(value);
                    if (provider) r.provider = std::move(*provider);
                    return provider.has_value();
                }
                case kProject:
                case kSession: {
                    auto text = OnDemand::optionalString(value);
                    if (text) (which == kProject ? r.project : r.session) = std::move(*text);
                    return text.has_value();
                }
                case kCost: {
                    auto cost = OnDemand::optionalNumber(value);
                    if (cost) r.reportedCostUSD = *cost;
                    return cost.has_value();
                }
                default: {
                    auto count = OnDemand::integer(value);
                    if (count) *counts[which - kCalls] = *count;
                    return count.has_value();
                }
            }
        });
    if (!decoded) return std::nullopt;
    // Everything is required but the project, the session and the reported cost.
    const unsigned optional = (1u << kProject) | (1u << kSession) | (1u << kCost);
    if ((seen | optional) != (1u << kFieldCount) - 1) return std::nullopt;
    try {
        (void)r.total();
        (void)r.read();
    } catch (const OutOfRange&) {
        return std::nullopt;
    }
    return r;
}

}  // namespace usagekit
