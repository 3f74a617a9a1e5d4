#include "sources/copilot.h"

#include "core/checked.h"
#include "core/json.h"
#include "core/line_reader.h"
#include "core/paths.h"
#include "core/scan.h"
#include "sources/epoch.h"
#include "sources/log_roots.h"
#include "sources/log_source.h"
#include "sources/spellings.h"

#include <algorithm>
#include <optional>

namespace usagekit {

namespace fs = std::filesystem;

namespace {

// Copilot's clients disagree on the spelling; every one present is added.
constexpr std::string_view kInput[] = {"prompt_tokens", "input_tokens", "inputTokens"};
constexpr std::string_view kOutput[] = {"completion_tokens", "output_tokens", "outputTokens"};

// A time as ISO 8601 text, or as a number of seconds or (above 1e12) milliseconds.
std::optional<Date> lineDate(const JSON& timestamp) {
    if (auto text = timestamp.string())
        if (auto date = Scan::date(*text)) return Epoch::date(date->secondsSince1970);
    return Epoch::secondsOrMilliseconds(timestamp.number().value_or(0));
}

// One record per model of a Copilot CLI "session.shutdown" event. The CLI writes one such
// event each time a session ends, its counts from zero since the session was (re)entered,
// so a session resumed twice holds three and each counts.
//
// "inputTokens" includes the cached tokens, as OpenAI's prompt_tokens does: the CLI's own
// summary prints "102.0k in, 475 out, 50.2k cached" where the cached part is the cache reads
// and writes together, and in every published example the cached figure is below the input
// one. So input is stored net of both, clamped at 0, as for Codex.
void countShutdown(const JSON& line, const std::string& session,
                   const std::optional<std::string>& project, std::vector<UsageRecord>& into) {
    const JSON metrics = line["data"]["modelMetrics"];
    if (!metrics.isObject()) return;
    auto date = lineDate(line["timestamp"]);
    if (!date) return;
    for (const auto& [model, metric] : metrics.members()) {
        const JSON usage = metric["usage"];
        if (!usage.isObject()) continue;
        UsageRecord r;
        try {
            const int64_t input = usage["inputTokens"].integer();
            r.cacheRead = usage["cacheReadTokens"].integer();
            r.cacheWrite = usage["cacheWriteTokens"].integer();
            r.input =
                std::max<int64_t>(0, checkedSub(input, checkedAdd(r.cacheRead, r.cacheWrite)));
            r.output = usage["outputTokens"].integer();
            r.reasoning = usage["reasoningTokens"].integer();
            const JSON count = metric["requests"]["count"];
            r.calls = count.number() ? count.integer() : 1;
        } catch (const OutOfRange&) {
            continue;
        }
        r.date = *date;
        r.provider = Provider::copilot;
        r.model = model;
        r.project = project;
        r.session = session;
        r.kind = "session";
        into.push_back(std::move(r));
    }
}

// Lines are numbered over the non-empty lines of a file, so that ids of lines without
// their own stay the same from scan to scan.
class LineParser {
  public:
    explicit LineParser(const std::string& session) : m_session(session) {}

    void line(std::string_view text) {
        const size_t position = m_position++;
        // Both keys that can hold usage, "usage" and "tokenUsage", end in these bytes; most
        // lines carry neither and are not worth parsing. A CLI session's start names its
        // working directory.
        const bool mayHoldUsage = Scan::contains(text, "sage\"");
        if (!mayHoldUsage && !Scan::contains(text, "\"session.start\"")) return;
        auto parsed = m_parser.parse(text);
        if (!parsed || !parsed->isObject()) return;
        const JSON& line = *parsed;

        const std::optional<std::string_view> type = line["type"].string();
        if (type == "session.start") {
            if (auto cwd = line["data"]["context"]["cwd"].string()) m_project.emplace(*cwd);
            return;
        }
        if (type == "session.shutdown") {
            countShutdown(line, m_session, m_project, m_records);
            return;
        }

        JSON usage = line["usage"];
        if (!usage.hasValue()) usage = line["tokenUsage"];
        if (!usage.hasValue()) return;

        UsageRecord r;
        try {
            r.input = sumOfSpellings(usage, kInput);
            r.output = sumOfSpellings(usage, kOutput);
            if (checkedAdd(r.input, r.output) < 1) return;
        } catch (const OutOfRange&) {
            return;
        }
        auto date = lineDate(line["timestamp"]);
        if (!date) return;

        if (auto id = line["id"].string())
            r.id = *id;
        else
            r.id = m_session + "-" + std::to_string(position);
        r.date = *date;
        r.provider = Provider::copilot;
        if (auto model = line["model"].string())
            r.model = *model;
        else if (auto usageModel = usage["model"].string())
            r.model = *usageModel;
        else
            r.model = "copilot";
        r.session = m_session;
        r.kind = "session";
        r.calls = 1;
        m_records.push_back(std::move(r));
    }

    std::vector<UsageRecord> finish() const { return Scan::finish(m_records); }

  private:
    JSONParser m_parser;
    const std::string& m_session;
    std::optional<std::string> m_project;  // from a CLI session's start
    size_t m_position = 0;
    std::vector<UsageRecord> m_records;
};

}  // namespace

std::vector<fs::path> CopilotSource::roots() {
    return TallyPaths::copilotRoots();
}

std::vector<std::string> CopilotSource::files(DirectoryIndex* index) {
    return LogRoots::files(roots(), {".jsonl", ".json"}, index);
}

std::vector<UsageRecord> CopilotSource::parse(std::string_view text, const std::string& session) {
    LineParser parser(session);
    Scan::forEachLine(text, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

std::string CopilotSource::sessionOf(const fs::path& file) {
    // The CLI keeps each session in session-state/<id>/events.jsonl: the folder names it.
    if (file.filename() == "events.jsonl" &&
        file.parent_path().parent_path().filename() == "session-state")
        return file.parent_path().filename().string();
    return file.stem().string();
}

std::vector<UsageRecord> CopilotSource::parseFile(const fs::path& file) {
    const std::string session = sessionOf(file);
    LineParser parser(session);
    Scan::forEachLineInFile(file, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

FoundRecords CopilotSource::scan(ScanCache& cache) const {
    return recordsOfFiles(cache, files(&cache.directories), parseFile);
}

}  // namespace usagekit
