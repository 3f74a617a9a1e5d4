// A subscription plan's usage windows (Claude's 5-hour and weekly limits, Codex's primary
// and secondary ones): how much of each is used and when it resets, and the short texts
// the card, the notifications and `tally --limits` show. Plain values; nothing here reads
// files or the network. Times are shown in the local zone with fixed English names.
#pragma once

#include "core/date.h"
#include "core/json.h"

#include <optional>
#include <string>
#include <vector>

namespace usagekit {

struct PlanLimits {
    struct Window {
        std::string key;    // the provider's own name: "five_hour", "primary", ...
        std::string label;  // "5-hour", "Weekly", ...
        double used = 0;    // percent, as reported (not clamped)
        std::optional<Date> resetsAt;

        // 0 once the reset time has come (the window rolled over since the reading).
        double usedAt(Date now) const;

        bool operator==(const Window&) const = default;
        void encode(JsonWriter& writer) const;
        static std::optional<Window> decode(const JSON& json);
    };

    std::string provider;  // "claude" or "codex"
    std::string name;      // "Claude", "ChatGPT · Codex"
    std::optional<std::string> plan;
    std::vector<Window> windows;  // in display order
    Date asOf;
    std::optional<std::string> note;

    // The window with the highest use at `now`; the earlier one wins a tie.
    std::optional<Window> tightest(Date now) const;
    // 5-hour 41% used (resets 17:05) · Weekly 63% used (resets Fri 09:00)
    std::string line(Date now) const;

    // A reset time as "17:05" on the day of `now`, "Fri 09:00" within six days, else
    // "3 Oct".
    static std::string when(Date date, Date now);

    bool operator==(const PlanLimits&) const = default;
    void encode(JsonWriter& writer) const;  // absent plan, note and resetsAt are left out
    static std::optional<PlanLimits> decode(const JSON& json);
};

// A percentage as a whole number, halves away from zero: 89.6 gives "90", -0.2 gives "0".
std::string wholePercent(double percent);

}  // namespace usagekit
