// Everything the usage view shows for one usage window, computed at once from a published
// ledger: the window's records, their totals and cache savings, the five breakdowns, and
// each session's first and last time. Every figure comes from the ledger's own
// aggregations; this only gathers them. A plain value, built on any thread from a ledger
// nobody mutates; it keeps the ledger alive for the chart's later questions.
#pragma once

#include "core/date.h"
#include "ledger/usage_ledger.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tally {

struct SessionSpan {
    usagekit::Date first;
    usagekit::Date last;
};

struct UsageDigest {
    std::shared_ptr<const usagekit::UsageLedger> ledger;
    int64_t windowDays = 0;  // 0: all records
    usagekit::Date now;
    std::vector<usagekit::UsageRecord> records;  // the window's, newest first
    usagekit::Totals totals;
    double cacheSavings = 0;
    std::vector<usagekit::Slice> providers, models, projects, sessions, kinds;
    std::map<std::string, SessionSpan> sessionSpans;  // by session slice id

    // The records of the window whose provider (or project name) is `id`, for the chart.
    std::vector<usagekit::UsageRecord> ofProvider(const std::string& id) const;
    std::vector<usagekit::UsageRecord> ofProject(const std::string& name) const;
    // The local days the chart spans: the window's first day (or the oldest record's, for
    // all records) through today, each a start of day.
    std::vector<usagekit::Date> days() const;
    // The models in totals.unpricedModels (neither a reported cost nor a rate), in that
    // order, with how many of the window's records and tokens they hold.
    struct Unpriced {
        std::string model;
        int64_t records = 0;
        int64_t tokens = 0;
    };
    std::vector<Unpriced> unpriced() const;

    static UsageDigest of(std::shared_ptr<const usagekit::UsageLedger> ledger, int64_t windowDays,
                          usagekit::Date now);
};

}  // namespace tally
