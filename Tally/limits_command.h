// `tally --limits`: refreshes the subscription plan limits exactly as the desktop does
// (same snapshot file, same rule for scratch support directories, same announced keys) and
// prints them. Posts no notification and writes nothing to standard error.
#pragma once

namespace tally {

// Prints one line per reading (its note indented below it), one per provider that could
// not be refreshed, or "No figures yet."; returns the exit status, always 0.
int runLimitsCommand();

}  // namespace tally
