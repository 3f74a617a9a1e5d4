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

}  // namespace usagekit
