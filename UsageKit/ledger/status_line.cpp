#include "ledger/status_line.h"

#include "core/json.h"
#include "ledger/fmt.h"

namespace usagekit::StatusLine {

namespace {

std::optional<std::string> text(const JSON& json) {
    const auto value = json.string();
    if (!value || value->empty()) return std::nullopt;
    return std::string(*value);
}

}  // namespace

Input parse(std::string_view text) {
    Input input;
    const auto document = JSONDocument::parse(text);
    if (!document || !document->root().isObject()) return input;
    const JSON root = document->root();
    input.session = StatusLine::text(root["session_id"]);
    input.model = StatusLine::text(root["model"]["display_name"]);
    if (!input.model) input.model = StatusLine::text(root["model"]["id"]);
    return input;
}

std::string line(const UsageLedger& ledger, const Input& input,
                 const std::vector<PlanLimits>& limits, Date now) {
    const Date today = Calendar::startOfDay(now);
    std::vector<UsageRecord> ofToday, ofSession;
    for (const UsageRecord& r : ledger.records) {
        if (r.date >= today) ofToday.push_back(r);
        if (input.session && r.session == input.session) ofSession.push_back(r);
    }

    std::string out;
    auto part = [&](const std::string& text) { out += (out.empty() ? "" : " \u00B7 ") + text; };
    if (input.model) part(*input.model);
    if (input.session) part("session " + Fmt::cents(ledger.totals(ofSession).allUSD()));
    const Totals day = ledger.totals(ofToday);
    std::string todayText = "today " + Fmt::cents(day.allUSD());
    if (const size_t unpriced = day.unpricedModels.size())
        todayText +=
            " (" + std::to_string(unpriced) + (unpriced == 1 ? " model" : " models") + " unpriced)";
    part(todayText);

    const PlanLimits* tightestPlan = nullptr;
    std::optional<PlanLimits::Window> tightest;
    for (const PlanLimits& plan : limits) {
        const auto window = plan.tightest(now);
        if (window && (!tightest || window->usedAt(now) > tightest->usedAt(now))) {
            tightest = window;
            tightestPlan = &plan;
        }
    }
    if (tightest) {
        std::string text = tightestPlan->name + " " + tightest->label + " " +
                           wholePercent(tightest->usedAt(now)) + "%";
        if (tightest->resetsAt)
            text += " (resets " + PlanLimits::when(*tightest->resetsAt, now) + ")";
        part(text);
    }
    return out;
}

}  // namespace usagekit::StatusLine
