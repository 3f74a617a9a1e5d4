// The one place that refreshes plan limits: it keeps the last good reading of each provider
// in "plan-limits.json" (so a launch shows figures at once), records why a reading failed,
// and announces each window that reaches 90% once per window period. The store holds no
// state besides that file; the clock and the notifier are handed to each refresh, so tests
// and the terminal command use the same code as the desktop. refresh() never throws.
#pragma once

#include "core/date.h"
#include "core/json.h"
#include "limits/notifier.h"
#include "limits/plan_limits.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace usagekit {

class PlanLimitsStore {
  public:
    struct Snapshot {
        std::vector<PlanLimits> limits;               // "claude" before "codex"
        std::map<std::string, std::string> problems;  // provider → why it was not refreshed
        std::vector<std::string> announced;           // oldest first, at most 40

        bool operator==(const Snapshot&) const = default;
        void encode(JsonWriter& writer) const;
        static std::optional<Snapshot> decode(const JSON& json);
    };

    struct Crossing {
        PlanLimits plan;
        PlanLimits::Window window;
        std::string key;
    };

    static constexpr double kWarningPercent = 90;
    static constexpr size_t kAnnouncedLimit = 40;

    static PlanLimitsStore& shared();
    static std::filesystem::path file();  // "plan-limits.json"

    // The saved snapshot; empty when the file is missing or does not decode, in which case
    // it is moved aside (Store::loadOrMoveAside), never overwritten by the next refresh.
    Snapshot cached() const;

    // Reads Claude (skipped in a scratch support directory unless TALLY_LIMITS_LIVE is
    // "1") and Codex, saves the new snapshot, then posts a notification for each newly
    // crossed window through `notifier`; with no notifier the crossings are still recorded
    // as announced but nothing is posted. A failed Claude read keeps the old reading beside
    // its problem text.
    Snapshot refresh(Date now, Notifier* notifier) const;

    // Windows at or above `threshold` percent at `now` whose announce key is not yet in the
    // snapshot's announced list, in reading and window order.
    static std::vector<Crossing> crossings(const Snapshot& snapshot, double threshold, Date now);
    // provider|window key|reset time in whole seconds (0 without one)
    static std::string announceKey(const PlanLimits& plan, const PlanLimits::Window& window);

    // What `tally --limits` prints: one line per reading (and its note), one per problem,
    // or "No figures yet.". Each line ends with a newline.
    static std::string summary(const Snapshot& snapshot, Date now);
};

namespace LimitNotifier {

// "Claude: weekly · sonnet window at 92%", when it resets, id "limits.<provider>.<key>".
Notification notification(const PlanLimits& plan, const PlanLimits::Window& window, Date now);
// Posts the notification only when the user allows alerts; never asks for permission.
void nearlyOut(const PlanLimits& plan, const PlanLimits::Window& window, Date now,
               Notifier& notifier);

}  // namespace LimitNotifier

}  // namespace usagekit
