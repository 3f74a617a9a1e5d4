// The tables of `tally report`: the records of a range of local days and a set of
// providers, grouped by local day, week or month, or by session, project or model. Every
// row is summed by the ledger's own totals and grouped by its own breakdowns, so each
// figure equals the summary's, the dashboard's and the export's. Plain values and pure
// functions, no terminal: the command lays the rows out. Any thread may call them.
#pragma once

#include "core/date.h"
#include "ledger/usage_ledger.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace usagekit::Report {

enum class Grouping { Daily, Weekly, Monthly, Session, Project, Model };

// "daily", "weekly", "monthly", "session", "project" or "model"; absent for other text.
std::optional<Grouping> grouping(std::string_view name);
std::string_view name(Grouping grouping);
// Whether rows are periods of time (daily, weekly, monthly) rather than groups.
bool isPeriod(Grouping grouping);

struct Options {
    Grouping grouping = Grouping::Daily;
    std::optional<Date> since;           // local midnight of the first day kept
    std::optional<Date> until;           // local midnight of the last day kept
    std::vector<std::string> providers;  // ids of the providers kept; empty keeps all
    bool breakdown = false;              // one row per model under each row (not for Model)
    bool sundayFirst = false;            // weeks start on Sunday instead of Monday
    // Absent: periods oldest first, groups largest (in tokens) first.
    std::optional<bool> ascending;
};

struct Row {
    // The day or the week's first day (YYYY-MM-DD), the month (YYYY-MM), the session id,
    // the project name, or provider id|model: the same keys the ledger's breakdowns use.
    std::string key;
    std::string label;                   // a period's key, or the ledger's label of a group
    std::vector<std::string> providers;  // ids, ordered by display name
    std::vector<std::string> models;     // ascending
    Totals totals;
    Date lastActivity;         // the date of the row's latest record
    std::vector<Row> byModel;  // with `breakdown`: one row per provider and model
};

struct Table {
    std::vector<Row> rows;
    Totals totals;  // of every record kept, unpriced models of all rows included
};

Table build(const UsageLedger& ledger, const Options& options);
// The table as one pretty JSON object whose keys the README lists. Throws
// std::invalid_argument if an amount is not a finite number.
std::string json(const Table& table, const Options& options);

}  // namespace usagekit::Report
