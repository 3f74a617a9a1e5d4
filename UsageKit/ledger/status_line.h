// The one line `tally statusline` prints in Claude Code's status bar: the session's cost
// so far, today's total and the tightest plan window of the saved plan limits. Pure
// functions of their arguments; any thread may call them.
#pragma once

#include "core/date.h"
#include "ledger/usage_ledger.h"
#include "limits/plan_limits.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace usagekit::StatusLine {

// What Claude Code pipes to a status-line command; any of it may be missing.
struct Input {
    std::optional<std::string> session;  // session_id
    std::optional<std::string> model;    // model.display_name, else model.id
};

// Never throws: text that is not a JSON object gives an empty Input.
Input parse(std::string_view text);

// "Opus · session $0.42 · today $12.30 · Claude 5-hour 41% (resets 17:05)". The model and
// session parts need the input's model and session; the plan part needs a reading. Today
// starts at local midnight of `now`. Models without a price today are counted after the
// total, never shown as a silent $0. No line break at the end.
std::string line(const UsageLedger& ledger, const Input& input,
                 const std::vector<PlanLimits>& limits, Date now);

}  // namespace usagekit::StatusLine
