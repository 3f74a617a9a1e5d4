#include "limits/plan_limits_store.h"

#include "core/checked.h"
#include "core/json_coding.h"
#include "core/paths.h"
#include "core/redact.h"
#include "core/store.h"
#include "core/text.h"
#include "limits/plan_limit_sources.h"
#include "limits/string_list.h"

#include <algorithm>

namespace usagekit {

namespace {

// Providers in the order the snapshot lists them.
constexpr const char* kProviders[] = {"claude", "codex"};

}  // namespace

void PlanLimitsStore::Snapshot::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("announced");
    StringList::encode(w, announced);
    w.key("limits");
    JSONCoding<std::vector<PlanLimits>>::encode(w, limits);
    w.key("problems");
    w.beginObject();
    for (const auto& [provider, text] : problems) {
        w.key(provider);
        w.value(text);
    }
    w.endObject();
    w.endObject();
}

std::optional<PlanLimitsStore::Snapshot> PlanLimitsStore::Snapshot::decode(const JSON& json) {
    auto announced = StringList::decode(json["announced"]);
    auto limits = JSONCoding<std::vector<PlanLimits>>::decode(json["limits"]);
    JSON problems = json["problems"];
    if (!announced || !limits || !problems.isObject()) return std::nullopt;
    Snapshot snapshot{std::move(*limits), {}, std::move(*announced)};
    for (const auto& [provider, value] : problems.members()) {
        auto text = Decode::string(value);
        if (!text) return std::nullopt;
        snapshot.problems[std::string(provider)] = std::move(*text);
    }
    return snapshot;
}

PlanLimitsStore& PlanLimitsStore::shared() {
    static PlanLimitsStore store;
    return store;
}

std::filesystem::path PlanLimitsStore::file() {
    return TallyPaths::state("plan-limits.json");
}

PlanLimitsStore::Snapshot PlanLimitsStore::cached() const {
    return Store::loadOrMoveAside<Snapshot>(file()).value_or(Snapshot());
}

PlanLimitsStore::Snapshot PlanLimitsStore::refresh(Date now, Notifier* notifier) const {
    Snapshot snapshot = cached();
    std::map<std::string, PlanLimits> byProvider;
    for (PlanLimits& limits : snapshot.limits)
        byProvider[limits.provider] = std::move(limits);

    // A scratch support directory belongs to a test or a throw-away run: it must not reach
    // Anthropic with the user's own sign-in unless asked to.
    bool live =
        !TallyPaths::isScratchState() || TallyPaths::environment("TALLY_LIMITS_LIVE") == "1";
    if (live) {
        try {
            byProvider["claude"] = PlanLimitSources::claude(now);
            snapshot.problems.erase("claude");
        } catch (const std::exception& error) {
            snapshot.problems["claude"] = Redact::secrets(error.what());
        }
    }

    if (auto codex = PlanLimitSources::codex(PlanLimitSources::codexSessions()))
        byProvider["codex"] = std::move(*codex);
    else
        byProvider.erase("codex");
    snapshot.problems.erase("codex");

    snapshot.limits.clear();
    for (const char* provider : kProviders)
        if (auto found = byProvider.find(provider); found != byProvider.end())
            snapshot.limits.push_back(std::move(found->second));

    std::vector<Crossing> crossed = crossings(snapshot, kWarningPercent, now);
    for (const Crossing& crossing : crossed)
        snapshot.announced.push_back(crossing.key);
    if (snapshot.announced.size() > kAnnouncedLimit)
        snapshot.announced.erase(snapshot.announced.begin(),
                                 snapshot.announced.end() - kAnnouncedLimit);

    Store::saveQuietly(snapshot, file());

    if (notifier)
        for (const Crossing& crossing : crossed)
            LimitNotifier::nearlyOut(crossing.plan, crossing.window, now, *notifier);
    return snapshot;
}

std::string PlanLimitsStore::announceKey(const PlanLimits& plan, const PlanLimits::Window& window) {
    int64_t seconds = 0;
    if (window.resetsAt) {
        try {
            seconds = truncatedCount(window.resetsAt->secondsSince1970);
        } catch (const OutOfRange&) {
            // Readers drop such reset times; a hand-edited file is the only way here.
        }
    }
    return plan.provider + "|" + window.key + "|" + std::to_string(seconds);
}

std::vector<PlanLimitsStore::Crossing> PlanLimitsStore::crossings(const Snapshot& snapshot,
                                                                  double threshold, Date now) {
    std::vector<Crossing> out;
    for (const PlanLimits& plan : snapshot.limits) {
        for (const PlanLimits::Window& window : plan.windows) {
            if (window.usedAt(now) < threshold) continue;
            std::string key = announceKey(plan, window);
            bool announced = std::find(snapshot.announced.begin(), snapshot.announced.end(), key) !=
                             snapshot.announced.end();
            if (!announced) out.push_back(Crossing{plan, window, std::move(key)});
        }
    }
    return out;
}

std::string PlanLimitsStore::summary(const Snapshot& snapshot, Date now) {
    std::string out;
    for (const PlanLimits& limits : snapshot.limits) {
        out += limits.name;
        if (limits.plan) out += " (" + *limits.plan + ")";
        out += ": " + limits.line(now) + "\n";
        if (limits.note) out += "  " + *limits.note + "\n";
    }
    // "claude" and "codex" first, then any other provider a hand-edited file may name.
    for (const char* provider : kProviders)
        if (auto found = snapshot.problems.find(provider); found != snapshot.problems.end())
            out += "Not refreshed: " + found->second + "\n";
    for (const auto& [provider, text] : snapshot.problems)
        if (std::find(std::begin(kProviders), std::end(kProviders), provider) ==
            std::end(kProviders))
            out += "Not refreshed: " + text + "\n";
    if (out.empty()) out = "No figures yet.\n";
    return out;
}

Notification LimitNotifier::notification(const PlanLimits& plan, const PlanLimits::Window& window,
                                         Date now) {
    std::string body = "Heavy work is better on another runner for now.";
    if (window.resetsAt && *window.resetsAt > now)
        body = "It resets " + PlanLimits::when(*window.resetsAt, now) +
               ". Heavy work is better on another runner until then.";
    return Notification{
        "limits." + plan.provider + "." + window.key,
        plan.name + ": " + Text::lowercased(window.label) + " window at " +
            wholePercent(window.usedAt(now)) + "%",
        std::move(body),
    };
}

void LimitNotifier::nearlyOut(const PlanLimits& plan, const PlanLimits::Window& window, Date now,
                              Notifier& notifier) {
    if (!notifier.isAuthorized()) return;
    notifier.post(notification(plan, window, now));
}

}  // namespace usagekit
