#include "sources/copilot.h"

#include "core/checked.h"
#include "core/json.h"
#include "core/line_reader.h"
#include "core/paths.h"
#include "core/scan.h"
#include "sources/epoch.h"
#include "sources/log_source.h"
#include "sources/spellings.h"

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

// Lines are numbered over the non-empty lines of a file, so that ids of lines without
// their own stay the same from scan to scan.
class LineParser {
  public:
    explicit LineParser(const std::string& session) : m_session(session) {}

    void line(std::string_view text) {
        const size_t position = m_position++;
        // Both keys that can hold usage, "usage" and "tokenUsage", end in these bytes; most
        // lines carry neither and are not worth parsing.
        if (!Scan::contains(text, "sage\"")) return;
        auto parsed = m_parser.parse(text);
        if (!parsed || !parsed->isObject()) return;
        const JSON& line = *parsed;

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
    size_t m_position = 0;
    std::vector<UsageRecord> m_records;
};

}  // namespace

std::vector<fs::path> CopilotSource::roots() {
    return TallyPaths::copilotRoots();
}

std::vector<std::string> CopilotSource::files(DirectoryIndex* index) {
    std::vector<std::string> found;
    for (const fs::path& root : roots())
        for (std::string& file : Scan::files(root, {".jsonl", ".json"}, index))
            found.push_back(std::move(file));
    return found;
}

std::vector<UsageRecord> CopilotSource::parse(std::string_view text, const std::string& session) {
    LineParser parser(session);
    Scan::forEachLine(text, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

std::vector<UsageRecord> CopilotSource::parseFile(const fs::path& file) {
    const std::string session = file.stem().string();
    LineParser parser(session);
    Scan::forEachLineInFile(file, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

FoundRecords CopilotSource::scan(ScanCache& cache) const {
    return recordsOfFiles(cache, files(&cache.directories), parseFile);
}

}  // namespace usagekit
