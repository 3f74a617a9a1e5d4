// `tally report [daily|weekly|monthly|session|project|model] [options]`: scans the local
// logs (and with --remote the provider accounts), then prints the ledger's records grouped
// as a table fitted to the terminal, or as JSON. A bad option is one line on standard error
// and exit status 2; a source that fails is a line on standard error and the report goes on.
#pragma once

#include "ledger/report.h"

#include <string>
#include <vector>

namespace tally {

struct ReportRequest {
    usagekit::Report::Options options;
    bool json = false;
    bool remote = false;
    bool colour = true;  // false with --no-color
    bool help = false;
    std::string error;  // what was wrong with the arguments, in one line
};

// The arguments after "report". Dates are read in the process's local zone.
ReportRequest parseReportArguments(const std::vector<std::string>& arguments);
std::string reportUsage();
// Returns the exit status.
int runReportCommand(const std::vector<std::string>& arguments);

}  // namespace tally
