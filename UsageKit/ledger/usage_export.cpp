#include "ledger/usage_export.h"

#include "core/json.h"

#include <algorithm>
#include <cstdio>

namespace usagekit::UsageExport {

namespace {

std::vector<const UsageRecord*> oldestFirst(const std::vector<UsageRecord>& records) {
    std::vector<const UsageRecord*> sorted;
    sorted.reserve(records.size());
    for (const UsageRecord& r : records)
        sorted.push_back(&r);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const UsageRecord* a, const UsageRecord* b) { return a->date < b->date; });
    return sorted;
}

void field(std::string& out, std::string_view text) {
    // A lone carriage return does not need quoting; spreadsheets read it as text.
    if (text.find_first_of(",\"\n") == std::string_view::npos) {
        out += text;
        return;
    }
    out.push_back('"');
    for (char c : text) {
        if (c == '"') out.push_back('"');
        out.push_back(c);
    }
    out.push_back('"');
}

}  // namespace

std::string csv(const std::vector<UsageRecord>& records, const Pricing& pricing) {
    std::string out =
        "date,provider,model,project,session,kind,calls,input,output,cache_read,cache_write,"
        "reasoning,cost_usd,metered\n";
    for (const UsageRecord* r : oldestFirst(records)) {
        field(out, ISO8601::format(r->date));
        out.push_back(',');
        field(out, r->provider.id);
        out.push_back(',');
        field(out, r->model);
        out.push_back(',');
        field(out, r->project.value_or(""));
        out.push_back(',');
        field(out, r->session.value_or(""));
        out.push_back(',');
        field(out, r->kind);
        for (int64_t count :
             {r->calls, r->input, r->output, r->cacheRead, r->cacheWrite, r->reasoning}) {
            out += ',';
            out += std::to_string(count);
        }
        char cost[64];
        std::snprintf(cost, sizeof cost, ",%.6f,", pricing.cost(*r));
        out += cost;
        out += r->provider.isMetered() ? "billed" : "seat";
        out.push_back('\n');
    }
    return out;
}

std::string json(const std::vector<UsageRecord>& records, const Pricing& pricing) {
    JsonWriter w(true);
    w.beginArray();
    for (const UsageRecord* r : oldestFirst(records)) {
        w.beginObject();
        w.key("cacheRead");
        w.value(r->cacheRead);
        w.key("cacheWrite");
        w.value(r->cacheWrite);
        w.key("calls");
        w.value(r->calls);
        w.key("costUSD");
        w.value(pricing.cost(*r));
        w.key("date");
        w.value(ISO8601::format(r->date));
        w.key("input");
        w.value(r->input);
        w.key("kind");
        w.value(r->kind);
        w.key("metered");
        w.value(r->provider.isMetered());
        w.key("model");
        w.value(r->model);
        w.key("output");
        w.value(r->output);
        if (r->project) {
            w.key("project");
            w.value(*r->project);
        }
        w.key("provider");
        w.value(r->provider.id);
        w.key("reasoning");
        w.value(r->reasoning);
        if (r->session) {
            w.key("session");
            w.value(*r->session);
        }
        w.endObject();
    }
    w.endArray();
    return w.take();
}

}  // namespace usagekit::UsageExport
