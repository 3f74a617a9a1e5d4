#include "statusline_command.h"

#include "core/date.h"
#include "ledger/status_line.h"
#include "limits/plan_limits_store.h"

#include <unistd.h>

#include <cstdio>

namespace tally {

using namespace usagekit;

namespace {

// Claude Code sends a few kilobytes; more than this is not its input and is not read.
constexpr size_t kInputLimit = 1 << 20;

std::string standardInput() {
    std::string text;
    if (isatty(STDIN_FILENO)) return text;
    char buffer[8192];
    ssize_t n;
    while (text.size() < kInputLimit && (n = read(STDIN_FILENO, buffer, sizeof buffer)) != 0) {
        if (n < 0) break;
        text.append(buffer, static_cast<size_t>(n));
    }
    return text;
}

}  // namespace

std::string statuslineUsage() {
    return "usage: tally statusline\n"
           "\n"
           "Reads the JSON Claude Code pipes to a status-line command and prints one line:\n"
           "the session's cost so far, today's total and the tightest plan window saved by\n"
           "the last plan-limit refresh. In ~/.claude/settings.json:\n"
           "  \"statusLine\": {\"type\": \"command\", \"command\": \"tally statusline\"}\n";
}

int runStatuslineCommand(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        if (argument == "--help" || argument == "-h") {
            std::fputs(statuslineUsage().c_str(), stdout);
            return 0;
        }
        std::fprintf(stderr, "tally statusline: unknown argument %s (it takes none)\n",
                     argument.c_str());
        return 2;
    }
    const StatusLine::Input input = StatusLine::parse(standardInput());
    UsageLedger ledger;
    ledger.scanLocal();
    const Date now = Date::now();
    const std::string line =
        StatusLine::line(ledger, input, PlanLimitsStore::shared().cached().limits, now) + "\n";
    // Printed before the changed scan cache is written: the status bar waits for nothing
    // but the line, and the process still finishes the write before it exits.
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
    return 0;
}

}  // namespace tally
