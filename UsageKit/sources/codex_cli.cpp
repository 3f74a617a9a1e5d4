#include "sources/codex_cli.h"

#include "core/checked.h"
#include "core/line_reader.h"
#include "core/paths.h"
#include "core/scan.h"
#include "sources/log_source.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace usagekit {

using Counts = CodexCLISource::Counts;

Counts::Counts(const JSON& json) {
    if (!json.isObject()) return;
    input = json["input_tokens"].integer();
    cachedInput = json["cached_input_tokens"].integer();
    cacheWrite = json["cache_write_input_tokens"].integer();
    output = json["output_tokens"].integer();
    reasoning = json["reasoning_output_tokens"].integer();
}

namespace {

struct Markers {
    bool any = false;          // one of the four quoted line types occurs
    bool usageRecord = false;  // "token_usage_record" occurs
};

// Which of the quoted words "session_meta", "turn_context", "token_usage_record" and
// "token_count" occur anywhere in the line. Response items are nearly all of a log's bytes
// and hold none of them, so three fast searches turn those away; only the few lines left
// are walked quote by quote to tell the words apart. With `anyWillDo` the walk stops at
// the first word.
Markers markers(std::string_view line, bool anyWillDo) {
    static constexpr std::string_view kSessionMeta = "session_meta\"",
                                      kTurnContext = "turn_context\"",
                                      kTokenCount = "token_count\"",
                                      kUsageRecord = "token_usage_record\"";
    Markers found;
    if (!Scan::contains(line, "\"token_") && !Scan::contains(line, "\"session_meta\"") &&
        !Scan::contains(line, "\"turn_context\""))
        return found;
    const char* p = line.data();
    const char* end = p + line.size();
    while ((p = static_cast<const char*>(std::memchr(p, '"', static_cast<size_t>(end - p))))) {
        ++p;
        const std::string_view rest(p, static_cast<size_t>(end - p));
        if (rest.empty()) break;
        if (rest[0] == 's') {
            found.any |= rest.starts_with(kSessionMeta);
        } else if (rest[0] == 't') {
            if (rest.starts_with(kUsageRecord)) {
                found.any = found.usageRecord = true;
                return found;
            }
            found.any |= rest.starts_with(kTurnContext) || rest.starts_with(kTokenCount);
        }
        if (found.any && anyWillDo) return found;
    }
    return found;
}

// The state of one file's parse. Each file gets its own, so files can be parsed on
// different threads.
//
// A file that holds a "token_usage_record" anywhere is read from those records alone;
// otherwise from the running totals of its "token_count" events. Both kinds are
// folded in the one pass, each with its own state, and one fold is kept at the end:
// once a record line has been seen the totals are no longer followed.
class LogParser {
  public:
    explicit LogParser(std::string fallbackSession) : m_session(std::move(fallbackSession)) {
        m_record.provider = Provider::codexCLI;
        m_record.calls = 1;
    }

    void line(std::string_view text) {
        const Markers found = markers(text, m_recordMode);
        if (found.usageRecord && !m_recordMode) {
            m_recordMode = true;
            m_fromTotals = {};
        }
        if (!found.any) return;
        auto root = m_parser.parse(text);
        if (!root || !root->isObject()) return;
        auto type = (*root)["type"].string();
        if (!type) return;
        const JSON payload = (*root)["payload"];
        const std::string_view timestamp = (*root)["timestamp"].string().value_or("");
        try {
            if (*type == "session_meta") {
                sessionMeta(payload);
            } else if (*type == "turn_context") {
                turnContext(payload);
            } else if (*type == "token_usage_record") {
                usageRecord(payload, timestamp);
            } else if (*type == "event_msg" && !m_recordMode) {
                tokenCount(payload, timestamp);
            }
        } catch (const OutOfRange&) {
            // A count beyond 64 bits: this line is dropped, the rest of the file stands.
        }
    }

    std::vector<UsageRecord> finish() {
        return m_recordMode ? m_fromRecords.take() : m_fromTotals.take();
    }

  private:
    void sessionMeta(const JSON& payload) {
        if (!payload.isObject()) return;
        if (auto id = payload["id"].string())
            m_session = *id;
        else if (auto sessionId = payload["session_id"].string())
            m_session = *sessionId;
        if (auto cwd = payload["cwd"].string()) assign(m_project, *cwd);
        // A sub-agent's thread names its spawner, in the source object or (older logs)
        // as a parent thread id.
        const JSON source = payload["source"];
        m_subThread = (source.isObject() && source["subagent"].hasValue()) ||
                      payload["parent_thread_id"].string().has_value();
    }

    void turnContext(const JSON& payload) {
        if (!payload.isObject()) return;
        if (auto model = payload["model"].string()) assign(m_model, *model);
        if (!m_project) {
            if (auto cwd = payload["cwd"].string()) m_project.emplace(*cwd);
        }
    }

    void usageRecord(const JSON& payload, std::string_view timestamp) {
        const std::string_view key = payload["response_id"].string().value_or(timestamp);
        if (!m_seen.insert(key)) return;
        const Counts counts(payload["usage"]);
        if (!m_model) return;
        auto date = Scan::date(timestamp);
        if (!date) return;
        count(m_fromRecords, *date, counts);
    }

    void tokenCount(const JSON& payload, std::string_view timestamp) {
        if (!payload.isObject() || payload["type"].string() != "token_count") return;
        const JSON info = payload["info"];
        if (!info.isObject()) return;
        const JSON totals = info["total_token_usage"];
        if (!totals.hasValue()) return;
        const Counts current(totals);
        // Codex repeats the last totals on events that carry no new turn.
        if (m_previous && *m_previous == current) return;
        const std::optional<Counts> previous = m_previous;
        m_previous = current;
        Counts delta = current;
        if (previous) {
            delta.input = checkedSub(current.input, previous->input);
            delta.cachedInput = checkedSub(current.cachedInput, previous->cachedInput);
            delta.cacheWrite = checkedSub(current.cacheWrite, previous->cacheWrite);
            delta.output = checkedSub(current.output, previous->output);
            delta.reasoning = checkedSub(current.reasoning, previous->reasoning);
            // Totals that went back mean the counter restarted: this turn is all of them.
            if (delta.input < 0 || delta.cachedInput < 0 || delta.cacheWrite < 0 ||
                delta.output < 0 || delta.reasoning < 0)
                delta = current;
        }
        if (!m_model) return;
        auto date = Scan::date(timestamp);
        if (!date) return;
        count(m_fromTotals, *date, delta);
    }

    // One request, folded as it comes. The record is rewritten in place each time, and its
    // id is left empty because folding replaces it, so a request that adds to a fold seen
    // before allocates nothing.
    void count(Scan::Folder& into, Date date, const Counts& counts) {
        UsageRecord& r = m_record;
        // input_tokens includes the cached part; we keep uncached input only.
        r.input = std::max<int64_t>(0, checkedSub(counts.input, counts.cachedInput));
        r.output = counts.output;
        r.cacheRead = counts.cachedInput;
        r.cacheWrite = counts.cacheWrite;
        r.reasoning = counts.reasoning;
        r.date = date;
        r.model = *m_model;
        r.project = m_project;
        r.session = m_session;
        r.kind = m_subThread ? "subagent" : "session";
        if (Scan::hasTokens(r)) into.add(r);
    }

    // Assigning into the string already there reuses its memory.
    static void assign(std::optional<std::string>& to, std::string_view text) {
        if (to)
            to->assign(text);
        else
            to.emplace(text);
    }

    JSONParser m_parser;
    std::string m_session;
    std::optional<std::string> m_project;
    std::optional<std::string> m_model;
    bool m_subThread = false;
    bool m_recordMode = false;
    std::optional<Counts> m_previous;
    SeenKeys m_seen;
    UsageRecord m_record;
    Scan::Folder m_fromRecords;
    Scan::Folder m_fromTotals;
};

}  // namespace

std::vector<std::filesystem::path> CodexCLISource::files() {
    std::vector<std::filesystem::path> found;
    for (const auto& root : {TallyPaths::codexSessions(), TallyPaths::codexArchived()}) {
        for (auto& file : Scan::files(root, ".jsonl")) {
            if (file.filename().string().starts_with("rollout-")) found.push_back(std::move(file));
        }
    }
    return found;
}

std::vector<UsageRecord> CodexCLISource::scan(ScanCache& cache) const {
    return recordsOfFiles(cache, files(),
                          [](const std::filesystem::path& file) { return parse(file); });
}

std::vector<UsageRecord> CodexCLISource::parse(std::string_view text,
                                               const std::string& fallbackSession) {
    LogParser parser(fallbackSession);
    Scan::forEachLine(text, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

std::vector<UsageRecord> CodexCLISource::parse(const std::filesystem::path& file) {
    LogParser parser(file.stem().string());
    Scan::forEachLineInFile(file, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

}  // namespace usagekit
