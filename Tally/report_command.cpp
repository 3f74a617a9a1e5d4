#include "report_command.h"

#include "table.h"
#include "terminal.h"

#include "core/pricing.h"
#include "core/scan_cache.h"
#include "ledger/fmt.h"

#include <cstdio>

namespace tally {

using namespace usagekit;

std::string reportUsage() {
    return "usage: tally report [daily|weekly|monthly|session|project|model] [options]\n"
           "\n"
           "  daily, weekly, monthly  one row per local day, week or month (default: daily)\n"
           "  session, project, model one row per session, project or provider and model\n"
           "\n"
           "  --since YYYY-MM-DD      from this local day on\n"
           "  --until YYYY-MM-DD      up to and including this local day\n"
           "  --provider ID           only this provider; repeat for more (claude-code, ...)\n"
           "  --breakdown             a row per model under each row\n"
           "  --remote                also read the provider accounts whose keys are set\n"
           "  --json                  the rows as JSON instead of a table\n"
           "  --order asc|desc        periods oldest first and groups largest first unless set\n"
           "  --week-start monday|sunday   the first day of a week (default: monday)\n"
           "  --no-color              no colour, even on a terminal (so does NO_COLOR)\n"
           "\n"
           "The table fits the terminal's width (or COLUMNS): narrow, it drops calls, cache\n"
           "write, cache read, input, output, billed, equivalent and providers, in that order.\n";
}

ReportRequest parseReportArguments(const std::vector<std::string>& arguments) {
    ReportRequest request;
    Report::Options& options = request.options;
    bool named = false;
    for (size_t i = 0; i < arguments.size() && request.error.empty(); ++i) {
        const std::string& argument = arguments[i];
        // The value of an option that takes one, or nothing when the arguments end.
        auto value = [&]() -> std::optional<std::string> {
            if (i + 1 >= arguments.size()) return std::nullopt;
            return arguments[++i];
        };
        // An option's value that must be `first` or `second`: whether it is `second`.
        auto either = [&](const std::string& first,
                          const std::string& second) -> std::optional<bool> {
            const std::optional<std::string> text = value();
            if (text == first || text == second) return text == second;
            request.error = argument + " needs " + first + " or " + second;
            return std::nullopt;
        };
        if (argument == "--since" || argument == "--until") {
            const std::optional<std::string> text = value();
            const std::optional<Date> day = text ? Calendar::parseDay(*text) : std::nullopt;
            if (!day)
                request.error = argument + " needs a date as YYYY-MM-DD" +
                                (text ? ", not \"" + *text + "\"" : "");
            else
                (argument == "--since" ? options.since : options.until) = day;
        } else if (argument == "--provider") {
            const std::optional<std::string> id = value();
            bool known = false;
            std::string ids;
            for (const Provider& provider : Provider::all()) {
                known = known || (id && provider.id == *id);
                ids += (ids.empty() ? "" : ", ") + provider.id;
            }
            if (known)
                options.providers.push_back(*id);
            else
                request.error =
                    (id ? "unknown provider \"" + *id + "\"" : "--provider needs an id") +
                    " (known: " + ids + ")";
        } else if (argument == "--order") {
            if (const auto descending = either("asc", "desc")) options.ascending = !*descending;
        } else if (argument == "--week-start") {
            if (const auto sunday = either("monday", "sunday")) options.sundayFirst = *sunday;
        } else if (argument == "--breakdown") {
            options.breakdown = true;
        } else if (argument == "--remote") {
            request.remote = true;
        } else if (argument == "--json") {
            request.json = true;
        } else if (argument == "--no-color") {
            request.colour = false;
        } else if (argument == "--help" || argument == "-h") {
            request.help = true;
        } else if (argument.starts_with("-")) {
            request.error = "unknown option " + argument + " (tally report --help lists them)";
        } else if (const auto grouping = Report::grouping(argument); grouping && named) {
            request.error = "one report at a time, not both " +
                            std::string(Report::name(options.grouping)) + " and " + argument;
        } else if (grouping) {
            options.grouping = *grouping;
            named = true;
        } else {
            request.error = "unknown report \"" + argument +
                            "\" (daily, weekly, monthly, session, project or model)";
        }
    }
    if (request.error.empty() && options.since && options.until && *options.since > *options.until)
        request.error = "--since " + Calendar::dayText(*options.since) + " is after --until " +
                        Calendar::dayText(*options.until);
    return request;
}

namespace {

// The column that names a row's providers, models or provider, by report.
std::string secondHeader(Report::Grouping grouping) {
    switch (grouping) {
        case Report::Grouping::Session:
            return "models";
        case Report::Grouping::Model:
            return "provider";
        default:
            return "providers";
    }
}

std::string firstHeader(Report::Grouping grouping) {
    switch (grouping) {
        case Report::Grouping::Daily:
            return "date";
        case Report::Grouping::Weekly:
            return "week of";
        case Report::Grouping::Monthly:
            return "month";
        default:
            return std::string(Report::name(grouping));
    }
}

std::string joined(const std::vector<std::string>& list) {
    std::string text;
    for (const std::string& item : list)
        text += (text.empty() ? "" : ", ") + item;
    return text;
}

std::string providerNames(const std::vector<std::string>& ids) {
    std::vector<std::string> names;
    for (const std::string& id : ids)
        names.push_back(Provider(id).name());
    return joined(names);
}

std::vector<std::string> figures(const Totals& t) {
    return {Fmt::grouped(t.uncachedInput), Fmt::grouped(t.output),      Fmt::grouped(t.cacheWrite),
            Fmt::grouped(t.cacheRead),     Fmt::grouped(t.tokens),      Fmt::grouped(t.calls),
            Fmt::cents(t.billedUSD),       Fmt::cents(t.equivalentUSD), Fmt::cents(t.allUSD())};
}

std::string table(const Report::Table& report, const Report::Options& options, size_t width,
                  bool colour) {
    const Report::Grouping grouping = options.grouping;
    const bool session = grouping == Report::Grouping::Session;
    // Numbered in the order they are dropped when the terminal is narrow.
    std::vector<Column> columns = {{firstHeader(grouping), false, 0, 16}};
    if (session) columns.push_back({"last active", false, 1, 0});
    columns.push_back({secondHeader(grouping), false, 9, 12});
    for (Column column : std::vector<Column>{{"input", true, 5, 0},
                                             {"output", true, 6, 0},
                                             {"cache write", true, 3, 0},
                                             {"cache read", true, 4, 0},
                                             {"total tokens", true, 0, 0},
                                             {"calls", true, 2, 0},
                                             {"billed", true, 7, 0},
                                             {"equivalent", true, 8, 0},
                                             {"cost", true, 0, 0}})
        columns.push_back(column);

    Table out(std::move(columns));
    auto add = [&](std::vector<std::string> head, const Totals& totals, Table::Style style) {
        for (std::string& cell : figures(totals))
            head.push_back(std::move(cell));
        out.add(std::move(head), style);
    };
    for (const Report::Row& row : report.rows) {
        std::vector<std::string> head = {row.label};
        if (session) head.push_back(Calendar::dayText(row.lastActivity));
        head.push_back(session ? joined(row.models) : providerNames(row.providers));
        add(std::move(head), row.totals, Table::Style::Body);
        for (const Report::Row& model : row.byModel) {
            std::vector<std::string> detail = {"  " + model.label};
            if (session) detail.push_back("");
            detail.push_back(providerNames(model.providers));
            add(std::move(detail), model.totals, Table::Style::Detail);
        }
    }
    std::vector<std::string> total = {"total"};
    if (session) total.push_back("");
    total.push_back("");
    add(std::move(total), report.totals, Table::Style::Total);
    return out.render(width, colour);
}

// "2 models have no price: a, b — add them to /…/pricing.json", or nothing.
std::string unpricedNote(const Totals& totals, bool colour) {
    const size_t count = totals.unpricedModels.size();
    if (count == 0) return "";
    const std::string text = (count == 1 ? "1 model has no price: "
                                         : std::to_string(count) + " models have no price: ") +
                             joined(totals.unpricedModels) + " \u2014 add " +
                             (count == 1 ? "it" : "them") + " to " + Pricing::file().string();
    return colour ? "\x1b[33m" + text + "\x1b[0m\n" : text + "\n";
}

}  // namespace

int runReportCommand(const std::vector<std::string>& arguments) {
    const ReportRequest request = parseReportArguments(arguments);
    if (!request.error.empty()) {
        std::fprintf(stderr, "tally report: %s\n", request.error.c_str());
        return 2;
    }
    if (request.help) {
        std::fputs(reportUsage().c_str(), stdout);
        return 0;
    }

    UsageLedger ledger;
    ledger.scanLocal();
    // On disk before anything is printed, so a reader that stops early costs no cache.
    ScanCache::waitForSave();
    if (request.remote) ledger.refreshRemote();
    for (const std::string& problem : ledger.problems)
        std::fprintf(stderr, "tally: %s\n", problem.c_str());

    const Report::Table report = Report::build(ledger, request.options);
    std::string text;
    if (request.json) {
        try {
            text = Report::json(report, request.options) + "\n";
        } catch (const std::exception& error) {
            std::fprintf(stderr, "tally: the report could not be written: %s\n", error.what());
            return 1;
        }
    } else if (report.rows.empty()) {
        text = "No usage to report.\n";
    } else {
        const bool colour = Terminal::colour(request.colour);
        text = table(report, request.options, static_cast<size_t>(Terminal::width()), colour) +
               unpricedNote(report.totals, colour);
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    return 0;
}

}  // namespace tally
