// The user's settings: how many days the usage views cover, what each subscription seat
// costs per month, and whether budget notifications are sent.
#pragma once

#include "core/json.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

namespace usagekit {

struct TallySettings {
    int64_t usageWindow = 30;
    std::map<std::string, double> seatPrices = defaultSeats();
    bool notifyBudgets = true;

    static std::map<std::string, double> defaultSeats();
    static std::filesystem::path file();
    // The stored settings with any missing default seat added, or the defaults.
    static TallySettings load();
    void save() const;  // failures are ignored

    void encode(JsonWriter& writer) const;
    static std::optional<TallySettings> decode(const JSON& json);
    bool operator==(const TallySettings&) const = default;
};

}  // namespace usagekit
