#include "sources/grok_cli.h"

#include "core/checked.h"
#include "core/json.h"
#include "core/line_reader.h"
#include "core/paths.h"
#include "core/scan.h"
#include "core/text.h"
#include "sources/log_source.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace usagekit {

namespace {

// The state of one file's parse. Each file gets its own, so files can be parsed on
// different threads.
class LogParser {
  public:
    LogParser(std::string session, std::string project)
        : m_session(std::move(session)), m_project(std::move(project)) {}

    void line(std::string_view text) {
        if (!Scan::contains(text, "turn_completed")) return;
        auto root = m_parser.parse(text);
        if (!root || !root->isObject()) return;
        const JSON update = (*root)["params"]["update"];
        if (!update.isObject() || update["sessionUpdate"].string() != "turn_completed") return;
        const JSON usage = update["usage"];
        if (!usage.hasValue()) return;

        const double seconds = (*root)["timestamp"].number().value_or(0);
        // Anything else is junk that neither the calendar nor the scan cache can hold.
        if (!ISO8601::holds(Date{seconds})) return;
        const std::string stamp = doubleDescription(seconds);
        for (const auto& [model, counts] : usage["modelUsage"].members()) {
            try {
                add(Date{seconds}, stamp, model, counts);
            } catch (const OutOfRange&) {
                // Only this model's entry holds the bad count; the others stand.
            }
        }
    }

    std::vector<UsageRecord> finish() { return Scan::finish(m_records); }

  private:
    void add(Date date, const std::string& stamp, std::string_view model, const JSON& counts) {
        UsageRecord r;
        r.calls = std::max<int64_t>(1, counts["modelCalls"].integer());
        const int64_t input = counts["inputTokens"].integer();
        r.cacheRead = counts["cachedReadTokens"].integer();
        // Grok counts cache hits inside inputTokens; we keep uncached input only.
        r.input = std::max<int64_t>(0, checkedSub(input, r.cacheRead));
        r.output = counts["outputTokens"].integer();
        r.cacheWrite = counts["cacheCreationTokens"].integer();
        r.reasoning = counts["reasoningTokens"].integer();
        // Cost comes in ticks, billionths of a dollar.
        if (auto ticks = counts["costUsdTicks"].number(); ticks && std::isfinite(*ticks))
            r.reportedCostUSD = *ticks / 1e9;
        r.id.reserve(m_session.size() + stamp.size() + model.size() + 2);
        r.id.append(m_session).append("-").append(stamp).append("-").append(model);
        r.date = date;
        r.provider = Provider::grokCLI;
        r.model = model;
        r.project = m_project;
        r.session = m_session;
        r.kind = "session";
        m_records.push_back(std::move(r));
    }

    JSONParser m_parser;
    const std::string m_session;
    const std::string m_project;
    std::vector<UsageRecord> m_records;
};

}  // namespace

FoundRecords GrokCLISource::scan(ScanCache& cache) const {
    return recordsOfFiles(
        cache, Scan::files(TallyPaths::grokSessions(), "updates.jsonl", &cache.directories),
        [](const std::filesystem::path& file) { return parse(file); });
}

std::vector<UsageRecord> GrokCLISource::parse(const std::filesystem::path& file) {
    const std::filesystem::path sessionDirectory = file.parent_path();
    const std::string projectName = sessionDirectory.parent_path().filename().string();
    LogParser parser(sessionDirectory.filename().string(),
                     Text::percentDecode(projectName).value_or(projectName));
    Scan::forEachLineInFile(file, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

}  // namespace usagekit
