#include "sources/claude_code.h"

#include "core/checked.h"
#include "core/json.h"
#include "core/line_reader.h"
#include "core/paths.h"
#include "core/scan.h"
#include "core/uuid.h"
#include "sources/log_source.h"

namespace usagekit {

namespace {

// The state of one file's parse. Each file gets its own, so files can be parsed on
// different threads.
class LogParser {
  public:
    // Most lines are prompts, tool output and snapshots; only replies carry usage.
    static constexpr std::string_view kUsage = "\"usage\"";

    void line(std::string_view text) {
        if (!Scan::contains(text, kUsage)) return;
        auto root = m_parser.parse(text);
        if (!root || !root->isObject()) return;
        JSON message = (*root)["message"];
        if (!message.isObject()) return;
        JSON usage = message["usage"];
        if (!usage.hasValue()) return;

        // Claude Code writes one line per content block of a reply, each repeating the
        // request's usage: only the first line of a request counts. The key is taken
        // before the timestamp is checked, so a request whose first line is broken is
        // not counted from a later line either.
        std::string key;
        if (auto requestId = (*root)["requestId"].string()) {
            if (!m_seen.insert(*requestId)) return;
            key = *requestId;
        } else if (auto uuid = (*root)["uuid"].string()) {
            if (!m_seen.insert(*uuid)) return;
            key = *uuid;
        } else {
            key = randomUUID();  // never repeats, so nothing to remember
        }

        auto timestamp = (*root)["timestamp"].string();
        if (!timestamp) return;
        auto date = Scan::date(*timestamp);
        if (!date) return;

        UsageRecord record;
        try {
            record.input = usage["input_tokens"].integer();
            record.output = usage["output_tokens"].integer();
            record.cacheRead = usage["cache_read_input_tokens"].integer();
            record.cacheWrite = usage["cache_creation_input_tokens"].integer();
        } catch (const OutOfRange&) {
            return;
        }
        record.id = std::move(key);
        record.date = *date;
        record.provider = Provider::claudeCode;
        record.model = message["model"].string().value_or("unknown");
        if (auto cwd = (*root)["cwd"].string()) record.project = std::string(*cwd);
        if (auto session = (*root)["sessionId"].string()) record.session = std::string(*session);
        record.kind = (*root)["isSidechain"].boolean() ? "subagent" : "session";
        record.calls = 1;
        // Folded as we go: a log of gigabytes holds one record per day, not per request.
        if (Scan::hasTokens(record)) m_folder.add(std::move(record));
    }

    std::vector<UsageRecord> finish() { return m_folder.take(); }

  private:
    JSONParser m_parser;
    SeenKeys m_seen;
    Scan::Folder m_folder;
};

}  // namespace

std::vector<UsageRecord> ClaudeCodeSource::scan(ScanCache& cache) const {
    return recordsOfFiles(cache, Scan::files(TallyPaths::claudeProjects(), ".jsonl"),
                          [](const std::filesystem::path& file) { return parse(file); });
}

std::vector<UsageRecord> ClaudeCodeSource::parse(const std::filesystem::path& file) {
    LogParser parser;
    // Only the lines holding the key are split out of the stream at all.
    Scan::forEachLineContaining(file, LogParser::kUsage,
                                [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

std::vector<UsageRecord> ClaudeCodeSource::parse(std::string_view text) {
    LogParser parser;
    Scan::forEachLine(text, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

}  // namespace usagekit
