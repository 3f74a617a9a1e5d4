#include "limits_command.h"

#include "core/date.h"
#include "limits/plan_limits_store.h"

#include <cstdio>

namespace tally {

int runLimitsCommand() {
    using namespace usagekit;
    Date now = Date::now();
    // No notifier: a terminal run records crossings as announced but shows them only here.
    PlanLimitsStore::Snapshot snapshot = PlanLimitsStore::shared().refresh(now, nullptr);
    std::fputs(PlanLimitsStore::summary(snapshot, now).c_str(), stdout);
    std::fflush(stdout);
    return 0;
}

}  // namespace tally
