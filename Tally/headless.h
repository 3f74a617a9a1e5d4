// The terminal commands of `tally`: they run on UsageKit alone, before (and without) any
// desktop object, and print only to standard output.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tally {

struct HeadlessOptions {
    bool scan = false;
    bool remote = false;
    bool limits = false;
    bool help = false;
    bool version = false;
    std::optional<std::string> exportFormat;  // "csv" or "json"
    std::optional<long long> days;            // overrides settings.usageWindow for export
    std::string error;                        // a malformed option, for the user
    // "report" or "statusline" when it is the first argument; the rest are its own.
    std::string command;
    std::vector<std::string> commandArguments;
    bool any() const {
        return scan || limits || help || version || exportFormat || !error.empty() ||
               !command.empty();
    }
};

// Arguments are compared whole; unknown ones are ignored (launchers add their own).
HeadlessOptions parseArguments(const std::vector<std::string>& arguments);
std::string usage();
// Runs the command and returns the exit status.
int runHeadless(const HeadlessOptions& options);

}  // namespace tally
