#include "core/settings.h"

#include "core/json_coding.h"
#include "core/paths.h"
#include "core/store.h"

namespace usagekit {

std::map<std::string, double> TallySettings::defaultSeats() {
    return {{"claude-code", 200}, {"codex-cli", 20},    {"grok-cli", 30},
            {"gemini-cli", 0},    {"cursor-agent", 20}, {"github-copilot", 10}};
}

std::filesystem::path TallySettings::file() {
    return TallyPaths::state("settings.json");
}

TallySettings TallySettings::load() {
    auto loaded = Store::loadOrMoveAside<TallySettings>(file());
    if (!loaded) return TallySettings();
    // A user's own price, 0 included, always wins; seats added in newer versions appear.
    for (const auto& [provider, price] : defaultSeats())
        loaded->seatPrices.emplace(provider, price);
    return *loaded;
}

void TallySettings::save() const {
    Store::saveQuietly(*this, file());
}

void TallySettings::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("notifyBudgets");
    w.value(notifyBudgets);
    w.key("seatPrices");
    w.beginObject();
    for (const auto& [provider, price] : seatPrices) {
        w.key(provider);
        w.value(price);
    }
    w.endObject();
    w.key("usageWindow");
    w.value(usageWindow);
    w.endObject();
}

std::optional<TallySettings> TallySettings::decode(const JSON& json) {
    auto window = Decode::integer(json["usageWindow"]);
    auto notify = Decode::boolean(json["notifyBudgets"]);
    JSON seats = json["seatPrices"];
    if (!window || !notify || !seats.isObject()) return std::nullopt;
    TallySettings settings;
    settings.usageWindow = *window;
    settings.notifyBudgets = *notify;
    settings.seatPrices.clear();
    for (const auto& [provider, value] : seats.members()) {
        auto price = Decode::number(value);
        if (!price) return std::nullopt;
        settings.seatPrices[std::string(provider)] = *price;
    }
    return settings;
}

}  // namespace usagekit
