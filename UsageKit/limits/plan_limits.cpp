#include "limits/plan_limits.h"

#include "core/json_coding.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace usagekit {

namespace {

constexpr const char* kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Local calendar fields; absent for an instant the C library cannot place.
std::optional<std::tm> localParts(Date date) {
    double whole = std::floor(date.secondsSince1970);
    if (!std::isfinite(whole) || std::fabs(whole) > 1e15) return std::nullopt;
    std::time_t t = static_cast<std::time_t>(whole);
    std::tm parts{};
    if (!localtime_r(&t, &parts)) return std::nullopt;
    return parts;
}

}  // namespace

std::string wholePercent(double percent) {
    char buffer[400];
    // Adding 0.0 turns the -0 of a small negative into 0.
    std::snprintf(buffer, sizeof buffer, "%.0f", std::round(percent) + 0.0);
    return buffer;
}

double PlanLimits::Window::usedAt(Date now) const {
    if (resetsAt && *resetsAt <= now) return 0;
    return used;
}

std::optional<PlanLimits::Window> PlanLimits::tightest(Date now) const {
    const Window* best = nullptr;
    for (const Window& window : windows)
        if (!best || window.usedAt(now) > best->usedAt(now)) best = &window;
    if (!best) return std::nullopt;
    return *best;
}

std::string PlanLimits::line(Date now) const {
    std::string out;
    for (const Window& window : windows) {
        if (!out.empty()) out += " · ";
        out += window.label + " " + wholePercent(window.usedAt(now)) + "% used";
        if (window.resetsAt) out += " (resets " + when(*window.resetsAt, now) + ")";
    }
    return out;
}

std::string PlanLimits::when(Date date, Date now) {
    auto at = localParts(date);
    auto today = localParts(now);
    if (!at || !today) return "";
    char buffer[64];
    if (at->tm_year == today->tm_year && at->tm_yday == today->tm_yday)
        std::snprintf(buffer, sizeof buffer, "%02d:%02d", at->tm_hour, at->tm_min);
    else if (date.secondsSince1970 - now.secondsSince1970 < 518400)
        std::snprintf(buffer, sizeof buffer, "%s %02d:%02d", kWeekdays[at->tm_wday], at->tm_hour,
                      at->tm_min);
    else
        std::snprintf(buffer, sizeof buffer, "%d %s", at->tm_mday, kMonths[at->tm_mon]);
    return buffer;
}

void PlanLimits::Window::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("key");
    w.value(key);
    w.key("label");
    w.value(label);
    if (resetsAt) {
        w.key("resetsAt");
        Encode::date(w, *resetsAt);
    }
    w.key("used");
    w.value(used);
    w.endObject();
}

std::optional<PlanLimits::Window> PlanLimits::Window::decode(const JSON& json) {
    auto key = Decode::string(json["key"]);
    auto label = Decode::string(json["label"]);
    auto used = Decode::number(json["used"]);
    if (!key || !label || !used) return std::nullopt;
    Window window{*key, *label, *used, std::nullopt};
    if (json["resetsAt"].hasValue()) {
        window.resetsAt = Decode::date(json["resetsAt"]);
        if (!window.resetsAt) return std::nullopt;
    }
    return window;
}

void PlanLimits::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("asOf");
    Encode::date(w, asOf);
    w.key("name");
    w.value(name);
    if (note) {
        w.key("note");
        w.value(*note);
    }
    if (plan) {
        w.key("plan");
        w.value(*plan);
    }
    w.key("provider");
    w.value(provider);
    w.key("windows");
    JSONCoding<std::vector<Window>>::encode(w, windows);
    w.endObject();
}

std::optional<PlanLimits> PlanLimits::decode(const JSON& json) {
    auto provider = Decode::string(json["provider"]);
    auto name = Decode::string(json["name"]);
    auto plan = Decode::optionalString(json["plan"]);
    auto windows = JSONCoding<std::vector<Window>>::decode(json["windows"]);
    auto asOf = Decode::date(json["asOf"]);
    auto note = Decode::optionalString(json["note"]);
    if (!provider || !name || !plan || !windows || !asOf || !note) return std::nullopt;
    return PlanLimits{*provider, *name, *plan, std::move(*windows), *asOf, *note};
}

}  // namespace usagekit
