#include "sources/gemini_cli.h"

#include "core/checked.h"
#include "core/line_reader.h"
#include "core/paths.h"
#include "core/scan.h"
#include "core/store.h"
#include "core/text.h"
#include "sources/epoch.h"
#include "sources/log_source.h"
#include "sources/spellings.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace usagekit {

namespace fs = std::filesystem;
using TokenCounts = GeminiCLISource::TokenCounts;

namespace {

// Gemini clients have written their usage object under several names and spellings over
// time; every spelling present is added, none wins over another.
constexpr std::string_view kCached[] = {"cached", "cache", "cachedContentTokenCount", "cache_read",
                                        "cacheRead"};
constexpr std::string_view kInput[] = {"input", "inputTokens", "input_tokens", "prompt",
                                       "promptTokenCount"};
constexpr std::string_view kOutput[] = {"output", "outputTokens", "output_tokens", "candidates",
                                        "candidatesTokenCount"};
constexpr std::string_view kThoughts[] = {"thoughts", "reasoning", "thoughtsTokenCount"};

int64_t total(const TokenCounts& c) {
    return checkedAdd(checkedAdd(checkedAdd(c.input, c.output), c.cached), c.thoughts);
}

// The API's own usage object: its prompt count includes the cached tokens.
std::optional<TokenCounts> fromUsageMetadata(const JSON& metadata) {
    if (!metadata.isObject()) return std::nullopt;
    TokenCounts c;
    c.cached = metadata["cachedContentTokenCount"].integer();
    c.input = std::max<int64_t>(0, checkedSub(metadata["promptTokenCount"].integer(), c.cached));
    c.output = metadata["candidatesTokenCount"].integer();
    c.thoughts = metadata["thoughtsTokenCount"].integer();
    if (total(c) > 0) return c;
    return std::nullopt;
}

std::optional<TokenCounts> fromTokenObject(const JSON& tokens) {
    if (!tokens.isObject()) return std::nullopt;
    TokenCounts c;
    c.cached = sumOfSpellings(tokens, kCached);
    c.input = sumOfSpellings(tokens, kInput);
    c.output = sumOfSpellings(tokens, kOutput);
    c.thoughts = sumOfSpellings(tokens, kThoughts);
    // Where the API's prompt count was copied in, it holds the cached tokens too.
    const int64_t prompt = tokens["promptTokenCount"].integer();
    if (prompt >= 1) c.input = std::max<int64_t>(0, checkedSub(prompt, c.cached));
    if (total(c) >= 1) return c;
    // Some clients keep only a total; count it all as input rather than lose it.
    const int64_t total = tokens["total"].integer();
    if (total >= 1) return TokenCounts{total, 0, 0, 0};
    return std::nullopt;
}

std::optional<Date> isoDate(const JSON& value) {
    auto text = value.string();
    if (!text) return std::nullopt;
    return Scan::date(*text);
}

// Absent unless the message has a date after 1970. Only the JSON-lines form knows
// "startTime" (its metadata line).
std::optional<Date> messageDate(const JSON& message, bool linesForm) {
    const JSON timestamp = message["timestamp"];
    std::optional<Date> date = isoDate(timestamp);
    if (!date && linesForm) date = isoDate(message["startTime"]);
    if (date) return Epoch::date(date->secondsSince1970);
    return Epoch::date(timestamp.number().value_or(0));
}

std::optional<std::string> stringOf(const JSON& value) {
    auto text = value.string();
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

UsageRecord makeRecord(std::string id, Date date, std::string model,
                       const std::optional<std::string>& project, const std::string& session,
                       const TokenCounts& counts) {
    UsageRecord r;
    r.id = std::move(id);
    r.date = date;
    r.provider = Provider::geminiCLI;
    r.model = std::move(model);
    r.project = project;
    r.session = session;
    r.kind = "session";
    r.calls = 1;
    r.input = counts.input;
    r.output = counts.output;
    r.cacheRead = counts.cached;
    r.reasoning = counts.thoughts;
    return r;
}

// The JSON-lines form, fed one line at a time so that a file can be streamed. The session
// and model run on from line to line; a message id seen again takes the earlier place.
class LineParser {
  public:
    LineParser(const std::optional<std::string>& project, std::string fallbackSession)
        : m_project(project), m_session(std::move(fallbackSession)) {}

    void line(std::string_view text) {
        const size_t position = m_position++;
        auto parsed = m_parser.parse(text);
        if (!parsed || !parsed->isObject()) return;
        const JSON& message = *parsed;

        if (auto session = message["sessionId"].string(); session && !session->empty())
            m_session = *session;
        if (auto model = message["model"].string())
            m_model = *model;
        else if (auto name = message["modelName"].string())
            m_model = *name;

        auto counts = GeminiCLISource::tokenCounts(message);
        if (!counts) return;
        auto date = messageDate(message, true);
        if (!date) return;
        std::string id = stringOf(message["id"]).value_or("line-" + std::to_string(position));
        UsageRecord record =
            makeRecord(id, *date, m_model.value_or("gemini"), m_project, m_session, *counts);
        auto [place, added] = m_places.try_emplace(std::move(id), m_records.size());
        if (added)
            m_records.push_back(std::move(record));
        else
            m_records[place->second] = std::move(record);
    }

    std::vector<UsageRecord> finish() const { return Scan::finish(m_records); }

  private:
    JSONParser m_parser;
    std::optional<std::string> m_project;
    std::string m_session;
    std::optional<std::string> m_model;
    size_t m_position = 0;
    std::vector<UsageRecord> m_records;
    std::unordered_map<std::string, size_t> m_places;
};

bool isChatFile(std::string_view path) {
    const std::string_view name = path.substr(path.rfind('/') + 1);
    return Scan::contains(path, "/chats/") &&
           (name.starts_with("session") || name.ends_with(".jsonl")) &&
           !name.starts_with("checkpoint");
}

}  // namespace

std::optional<TokenCounts> GeminiCLISource::tokenCounts(const JSON& message) {
    try {
        if (JSON metadata = message["usageMetadata"]; metadata.hasValue())
            if (auto counts = fromUsageMetadata(metadata)) return counts;
        for (std::string_view key : {"tokens", "usage", "tokenUsage"}) {
            JSON tokens = message[key];
            if (!tokens.hasValue()) continue;
            if (auto counts = fromTokenObject(tokens)) return counts;
        }
    } catch (const OutOfRange&) {
    }
    return std::nullopt;
}

std::vector<UsageRecord> GeminiCLISource::parse(const JSON& messages,
                                                const std::optional<std::string>& project,
                                                const std::string& session,
                                                const std::optional<std::string>& model) {
    std::vector<UsageRecord> records;
    size_t position = 0;
    for (const JSON& message : messages.array()) {
        const size_t index = position++;
        if (!message.isObject()) continue;
        auto counts = tokenCounts(message);
        if (!counts) continue;
        auto date = messageDate(message, false);
        if (!date) continue;
        std::string id = stringOf(message["id"]).value_or("msg-" + std::to_string(index));
        std::string messageModel = stringOf(message["model"]).value_or(model.value_or("gemini"));
        records.push_back(
            makeRecord(std::move(id), *date, std::move(messageModel), project, session, *counts));
    }
    return Scan::finish(records);
}

std::vector<UsageRecord> GeminiCLISource::parse(std::string_view text,
                                                const std::optional<std::string>& project,
                                                const std::string& fallbackSession) {
    LineParser parser(project, fallbackSession);
    Scan::forEachLine(text, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

std::vector<UsageRecord> GeminiCLISource::parseFile(const fs::path& file) {
    const std::optional<std::string> project = projectName(file);
    const std::string fallbackSession = file.stem().string();

    if (file.extension() == ".json") {
        auto text = Store::readFile(file);
        if (!text) return {};
        JSONParser parser;
        if (auto root = parser.parse(*text); root && (*root)["messages"].isArray()) {
            const std::string session = stringOf((*root)["sessionId"]).value_or(fallbackSession);
            return parse((*root)["messages"], project, session, stringOf((*root)["model"]));
        }
        return parse(*text, project, fallbackSession);
    }

    LineParser parser(project, fallbackSession);
    if (!Scan::forEachLineInFile(file, [&](std::string_view line) { parser.line(line); }))
        return {};
    return parser.finish();
}

std::optional<std::string> GeminiCLISource::projectName(const fs::path& near) {
    fs::path directory = near.parent_path();
    for (;;) {
        if (auto text = Store::readFile(directory / ".project_root");
            text && simdjson::validate_utf8(text->data(), text->size())) {
            std::string_view name = Text::trimmed(*text);
            if (!name.empty()) return std::string(name);
        }
        fs::path parent = directory.parent_path();
        if (parent == directory) return std::nullopt;
        directory = std::move(parent);
    }
}

std::vector<std::string> GeminiCLISource::files(DirectoryIndex* index) {
    std::vector<std::string> found;
    for (const fs::path& home : TallyPaths::geminiHomes()) {
        const fs::path tmp = home / "tmp";
        for (std::string& file : Scan::files(tmp, {".jsonl", ".json"}, index))
            if (isChatFile(file)) found.push_back(std::move(file));
    }
    return found;
}

FoundRecords GeminiCLISource::scan(ScanCache& cache) const {
    return recordsOfFiles(cache, files(&cache.directories), parseFile);
}

}  // namespace usagekit
