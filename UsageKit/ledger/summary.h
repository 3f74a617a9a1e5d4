// The headless summaries that `tally --scan [--remote]` prints: one money line, one line
// per provider, then the problems. Every line ends with a newline.
#pragma once

#include "core/date.h"
#include "ledger/usage_ledger.h"

#include <string>

namespace usagekit::Summary {

// "today $… · month $… · all $… billed $… equivalent $… · N records", provider lines and
// problems, for the ledger after a local scan. Today and this month start at local
// midnight and on the first of the month at `now`; later records count in both.
std::string local(const UsageLedger& ledger, Date now = Date::now());
// "with remote · all $… billed $… equivalent $… · N records", provider lines and problems,
// for the ledger after a remote refresh.
std::string remote(const UsageLedger& ledger);

}  // namespace usagekit::Summary
