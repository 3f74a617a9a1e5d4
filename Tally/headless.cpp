#include "headless.h"

#include "limits_command.h"
#include "report_command.h"
#include "statusline_command.h"

#include "core/scan_cache.h"
#include "core/settings.h"
#include "ledger/summary.h"
#include "ledger/usage_export.h"
#include "ledger/usage_ledger.h"

#include <cstdio>
#include <iostream>

namespace tally {

using namespace usagekit;

std::string usage() {
    return "usage: tally --scan [--remote]\n"
           "       tally --export csv|json [--days N] [--remote]\n"
           "       tally --limits\n"
           "       tally report [daily|weekly|monthly|session|project|model] [options]\n"
           "       tally statusline\n"
           "       tally --help | --version\n"
           "\n"
           "  --scan        read the local coding-tool logs and print what they cost\n"
           "  --remote      also read the provider accounts whose keys are set\n"
           "  --export FMT  write the records of the usage window as CSV or JSON\n"
           "  --days N      with --export: the last N days instead of the usage window (0: all)\n"
           "  --limits      refresh and print the subscription plan limits\n"
           "  report        usage by day, week, month, session, project or model (report --help)\n"
           "  statusline    one line for Claude Code's status bar, from its JSON on stdin\n"
           "\n"
           "State lives in ${XDG_DATA_HOME:-~/.local/share}/Tally, or in $TALLY_SUPPORT_DIR.\n";
}

HeadlessOptions parseArguments(const std::vector<std::string>& arguments) {
    HeadlessOptions options;
    if (!arguments.empty() && (arguments[0] == "report" || arguments[0] == "statusline")) {
        options.command = arguments[0];
        options.commandArguments.assign(arguments.begin() + 1, arguments.end());
        return options;
    }
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--scan") {
            options.scan = true;
        } else if (argument == "--remote") {
            options.remote = true;
        } else if (argument == "--limits") {
            options.limits = true;
        } else if (argument == "--help" || argument == "-h") {
            options.help = true;
        } else if (argument == "--version") {
            options.version = true;
        } else if (argument == "--export") {
            if (i + 1 < arguments.size() &&
                (arguments[i + 1] == "csv" || arguments[i + 1] == "json"))
                options.exportFormat = arguments[++i];
            else
                options.error = "--export needs a format: csv or json";
        } else if (argument == "--days") {
            try {
                size_t used = 0;
                if (i + 1 >= arguments.size()) throw std::invalid_argument("missing");
                long long days = std::stoll(arguments[i + 1], &used);
                if (used != arguments[i + 1].size() || days < 0) throw std::invalid_argument("bad");
                options.days = days;
                ++i;
            } catch (const std::exception&) {
                options.error = "--days needs a whole number of days (0 for all)";
            }
        }
    }
    return options;
}

namespace {

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

// A scan whose cache is on disk before anything is printed: a reader that stops reading
// early (`| head`) or a Ctrl-C once the output is there must not cost the next run its cache.
void scanLocal(UsageLedger& ledger) {
    ledger.scanLocal();
    ScanCache::waitForSave();
}

int runScan(bool remote) {
    UsageLedger ledger;
    scanLocal(ledger);
    print(Summary::local(ledger));
    if (remote) {
        UsageLedger withRemote;
        withRemote.copy(ledger);
        withRemote.refreshRemote();
        print(Summary::remote(withRemote));
    }
    return 0;
}

int runExport(const std::string& format, std::optional<long long> days, bool remote) {
    const TallySettings settings = TallySettings::load();
    UsageLedger ledger;
    scanLocal(ledger);
    if (remote) ledger.refreshRemote();
    const std::vector<UsageRecord> records = ledger.since(days.value_or(settings.usageWindow));
    try {
        print(format == "csv" ? UsageExport::csv(records, ledger.pricing)
                              : UsageExport::json(records, ledger.pricing) + "\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tally: the export could not be written: %s\n", error.what());
        return 1;
    }
    return 0;
}

}  // namespace

int runHeadless(const HeadlessOptions& options) {
    if (!options.error.empty()) {
        std::fprintf(stderr, "tally: %s\n\n%s", options.error.c_str(), usage().c_str());
        return 2;
    }
    if (options.help) {
        print(usage());
        return 0;
    }
    if (options.version) {
        print(std::string("tally ") + TALLY_VERSION + "\n");
        return 0;
    }
    if (options.command == "report") return runReportCommand(options.commandArguments);
    if (options.command == "statusline") return runStatuslineCommand(options.commandArguments);
    if (options.scan) return runScan(options.remote);
    if (options.limits) return runLimitsCommand();
    if (options.exportFormat) return runExport(*options.exportFormat, options.days, options.remote);
    return 2;
}

}  // namespace tally
