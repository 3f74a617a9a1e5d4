#include "ledger/summary.h"

#include "ledger/fmt.h"

#include <algorithm>
#include <cstdio>

namespace usagekit::Summary {

namespace {

std::string format(const char* pattern, auto... values) {
    int size = std::snprintf(nullptr, 0, pattern, values...);
    std::string text(static_cast<size_t>(size > 0 ? size : 0), '\0');
    std::snprintf(text.data(), text.size() + 1, pattern, values...);
    return text;
}

// Provider lines, then the problems as one block.
std::string details(const UsageLedger& ledger) {
    std::string text;
    for (const Slice& slice : ledger.byProvider(ledger.records))
        text += "  " + slice.label + "  " + Fmt::cents(slice.costUSD) + "  " +
                Fmt::tokens(slice.tokens) + " tokens\n";
    if (!ledger.problems.empty()) {
        for (size_t i = 0; i < ledger.problems.size(); ++i)
            text += (i ? "\n" : "") + ledger.problems[i];
        text += "\n";
    }
    return text;
}

}  // namespace

std::string local(const UsageLedger& ledger, Date now) {
    const Totals all = ledger.totals(ledger.records);
    const Totals today = ledger.totals(ledger.datedFrom(Calendar::startOfDay(now)));
    const Totals month = ledger.totals(ledger.datedFrom(Calendar::startOfMonth(now)));
    return format(
               "today $%.2f \u00B7 month $%.2f \u00B7 all $%.2f billed $%.2f equivalent $%.2f "
               "\u00B7 %zu records\n",
               today.allUSD(), month.allUSD(), all.allUSD(), all.billedUSD, all.equivalentUSD,
               ledger.records.size()) +
           details(ledger);
}

std::string remote(const UsageLedger& ledger) {
    const Totals all = ledger.totals(ledger.records);
    return format("with remote \u00B7 all $%.2f billed $%.2f equivalent $%.2f \u00B7 %zu records\n",
                  all.allUSD(), all.billedUSD, all.equivalentUSD, ledger.records.size()) +
           details(ledger);
}

}  // namespace usagekit::Summary
