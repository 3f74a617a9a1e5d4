#include "sources/claude_code.h"

#include "core/checked.h"
#include "core/json.h"
#include "core/line_reader.h"
#include "core/paths.h"
#include "core/scan.h"
#include "core/uuid.h"
#include "sources/log_roots.h"
#include "sources/log_source.h"

#include <simdjson.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace usagekit {

namespace {

namespace ondemand = simdjson::ondemand;
using ondemand::json_type;

// What a usage line says, each key read where it first occurs, as a lookup in a parsed
// document finds it. The strings live in the On-Demand parser until its next line.
struct UsageLine {
    std::optional<std::string_view> requestId, uuid, timestamp, cwd, sessionId, model;
    bool sidechain = false;
    std::optional<double> input, output, cacheRead, cacheWrite;
};

// The keys a line is read for, one bit each, so that only a key's first occurrence counts.
enum Key : unsigned {
    kOther = 0,
    kMessage = 1 << 0,
    kRequestId = 1 << 1,
    kUuid = 1 << 2,
    kTimestamp = 1 << 3,
    kCwd = 1 << 4,
    kSessionId = 1 << 5,
    kSidechain = 1 << 6,
    kModel = 1 << 7,
    kUsageObject = 1 << 8,
    kInput = 1 << 9,
    kOutput = 1 << 10,
    kCacheRead = 1 << 11,
    kCacheWrite = 1 << 12,
};

Key rootKey(std::string_view name) {
    if (name == "message") return kMessage;
    if (name == "requestId") return kRequestId;
    if (name == "uuid") return kUuid;
    if (name == "timestamp") return kTimestamp;
    if (name == "cwd") return kCwd;
    if (name == "sessionId") return kSessionId;
    if (name == "isSidechain") return kSidechain;
    return kOther;
}

Key messageKey(std::string_view name) {
    if (name == "usage") return kUsageObject;
    if (name == "model") return kModel;
    return kOther;
}

Key usageKey(std::string_view name) {
    if (name == "input_tokens") return kInput;
    if (name == "output_tokens") return kOutput;
    if (name == "cache_read_input_tokens") return kCacheRead;
    if (name == "cache_creation_input_tokens") return kCacheWrite;
    return kOther;
}

// One On-Demand parser per thread, kept from log to log: a parser sized for one log's
// longest line is ready for the next log's, where a parser per log would have its buffers
// allocated (and zeroed by the kernel) again for every file.
ondemand::parser& lineParser() {
    thread_local ondemand::parser parser;
    return parser;
}

// The state of one file's parse. Each file gets its own, so files can be parsed on
// different threads.
class LogParser {
  public:
    // Most lines are prompts, tool output and snapshots; only replies carry usage.
    static constexpr std::string_view kUsage = "\"usage\"";

    // A line anywhere in memory: copied first, because On-Demand reads up to
    // SIMDJSON_PADDING bytes past the end of what it parses. The copy is followed by "\n",
    // as a line from the line reader is, so the verdict on a line with unbalanced brackets
    // never depends on a longer line copied here before it.
    void line(std::string_view text) {
        if (!Scan::contains(text, kUsage)) return;
        const size_t capacity = text.size() + simdjson::SIMDJSON_PADDING;
        if (m_copy.size() < capacity) m_copy.resize(capacity);
        std::memcpy(m_copy.data(), text.data(), text.size());
        m_copy[text.size()] = '\n';
        count(std::string_view(m_copy.data(), text.size()), capacity);
    }

    // A line from Scan::forEachLineContaining(kUsage): known to hold the key, and followed
    // by the line reader's slack, so parsed where it lies.
    void lineHoldingUsage(std::string_view text) {
        static_assert(Scan::kLineSlack >= simdjson::SIMDJSON_PADDING);
        count(text, text.size() + Scan::kLineSlack);
    }

    std::vector<UsageRecord> finish() { return m_folder.take(); }

  private:
    // `text` is followed by readable memory up to `capacity` bytes from its start.
    void count(std::string_view text, size_t capacity) {
        UsageLine line;
        if (!read(text, capacity, line)) return;

        // Claude Code writes one line per content block of a reply, each repeating the
        // request's usage: only the first line of a request counts. The key is taken
        // before the timestamp is checked, so a request whose first line is broken is
        // not counted from a later line either.
        std::string key;
        if (line.requestId) {
            if (!m_seen.insert(*line.requestId)) return;
            key = *line.requestId;
        } else if (line.uuid) {
            if (!m_seen.insert(*line.uuid)) return;
            key = *line.uuid;
        } else {
            key = randomUUID();  // never repeats, so nothing to remember
        }

        if (!line.timestamp) return;
        auto date = Scan::date(*line.timestamp);
        if (!date) return;

        UsageRecord record;
        try {
            record.input = line.input ? truncatedCount(*line.input) : 0;
            record.output = line.output ? truncatedCount(*line.output) : 0;
            record.cacheRead = line.cacheRead ? truncatedCount(*line.cacheRead) : 0;
            record.cacheWrite = line.cacheWrite ? truncatedCount(*line.cacheWrite) : 0;
        } catch (const OutOfRange&) {
            return;
        }
        record.id = std::move(key);
        record.date = *date;
        record.provider = Provider::claudeCode;
        record.model = line.model.value_or("unknown");
        if (line.cwd) record.project = std::string(*line.cwd);
        if (line.sessionId) record.session = std::string(*line.sessionId);
        record.kind = line.sidechain ? "subagent" : "session";
        record.calls = 1;
        // Folded as we go: a log of gigabytes holds one record per day, not per request.
        if (Scan::hasTokens(record)) m_folder.add(std::move(record));
    }

    // Reads a line On-Demand: the root object's fields once, in order, stepping over
    // message.content and every other value it does not need without copying or
    // unescaping it. False unless the line is a JSON object whose message is an object
    // holding usage that is not null.
    //
    // Checked as strictly as a full parse: the whole line's UTF-8, that its strings close
    // and hold no control characters (stage 1 does these before any field is read); every
    // value that is read, whatever its type; the keys and separators of the root object,
    // of message and of usage; and that the line ends where the root object closes, which
    // also catches a line cut off mid-write.
    //
    // Not checked: the inside of a value that is stepped over (message.content,
    // toolUseResult, a key repeated after its first occurrence, ...), which On-Demand only
    // counts through bracket by bracket. A bad escape, literal or number, a missing comma
    // or colon, or a ] closing a { in there goes unnoticed, and the line counts as if it
    // were whole. So does a whole number beyond 64 bits in there, which is valid JSON that
    // a full parse refuses. Claude Code writes these lines with a JSON encoder: a line
    // damaged in just those bytes while its usage stayed whole is not worth unescaping
    // every content string of every line for.
    bool read(std::string_view text, size_t capacity, UsageLine& line) {
        // Lines only get longer than the parser has room for early in a file: grow it in
        // steps rather than to each longer line in turn.
        ondemand::parser& parser = lineParser();
        if (parser.capacity() < text.size() &&
            parser.allocate(std::max(text.size(), 2 * parser.capacity())))
            return false;
        ondemand::document document;
        if (parser.iterate(text.data(), text.size(), capacity).get(document)) return false;
        ondemand::object root;
        if (document.get_object().get(root)) return false;
        unsigned taken = 0;
        for (auto result : root) {
            // A line that breaks off or goes wrong between fields shows as an error here.
            ondemand::field field;
            std::string_view name;
            if (std::move(result).get(field) || !OnDemandJSON::key(field, name)) return false;
            const Key key = rootKey(name);
            if (key == kOther || (taken & key)) continue;
            taken |= key;
            ondemand::value& value = field.value();
            bool ok = true;
            switch (key) {
                case kMessage:
                    ok = readMessage(value, line);
                    break;
                case kRequestId:
                    ok = readText(value, line.requestId);
                    break;
                case kUuid:
                    ok = readText(value, line.uuid);
                    break;
                case kTimestamp:
                    ok = readText(value, line.timestamp);
                    break;
                case kCwd:
                    ok = readText(value, line.cwd);
                    break;
                case kSessionId:
                    ok = readText(value, line.sessionId);
                    break;
                case kSidechain:
                    ok = readFlag(value, line.sidechain);
                    break;
                default:
                    break;
            }
            if (!ok) return false;
        }
        // The root object has closed; the line must end there.
        return (taken & kMessage) && OnDemandJSON::endedAtRoot(document);
    }

    // message: an object, of which model and usage are read. False unless usage is there
    // and not null.
    bool readMessage(ondemand::value& value, UsageLine& line) {
        ondemand::object message;
        if (value.get_object().get(message)) return false;
        unsigned taken = 0;
        for (auto result : message) {
            ondemand::field field;
            std::string_view name;
            if (std::move(result).get(field) || !OnDemandJSON::key(field, name)) return false;
            const Key key = messageKey(name);
            if (key == kOther || (taken & key)) continue;
            taken |= key;
            const bool ok = key == kModel ? readText(field.value(), line.model)
                                          : readUsage(field.value(), line);
            if (!ok) return false;
        }
        return taken & kUsageObject;
    }

    // usage: the four counts of an object; any other value counts nothing, and null makes
    // no record at all.
    bool readUsage(ondemand::value& value, UsageLine& line) {
        json_type type;
        if (value.type().get(type)) return false;
        if (type != json_type::object) {
            std::optional<double> ignored;
            return readNumber(value, type, ignored) && type != json_type::null;
        }
        ondemand::object usage;
        if (value.get_object().get(usage)) return false;
        unsigned taken = 0;
        for (auto result : usage) {
            ondemand::field field;
            std::string_view name;
            if (std::move(result).get(field) || !OnDemandJSON::key(field, name)) return false;
            const Key key = usageKey(name);
            if (key == kOther || (taken & key)) continue;
            taken |= key;
            std::optional<double>& count = key == kInput       ? line.input
                                           : key == kOutput    ? line.output
                                           : key == kCacheRead ? line.cacheRead
                                                               : line.cacheWrite;
            if (!readNumber(field.value(), count)) return false;
        }
        return true;
    }

    // A field read as text: a string, unescaped; any other value is no text.
    bool readText(ondemand::value& value, std::optional<std::string_view>& text) {
        json_type type;
        if (value.type().get(type)) return false;
        if (type != json_type::string) {
            std::optional<double> ignored;
            return readNumber(value, type, ignored);
        }
        std::string_view string;
        if (value.get_string().get(string)) return false;
        text = string;
        return true;
    }

    // isSidechain: true or false as written; any other value is true when it reads as a
    // number that is not zero, as the lenient boolean every reader uses has it.
    bool readFlag(ondemand::value& value, bool& flag) {
        json_type type;
        if (value.type().get(type)) return false;
        if (type == json_type::boolean) return value.get_bool().get(flag) == simdjson::SUCCESS;
        std::optional<double> number;
        if (!readNumber(value, type, number)) return false;
        flag = number && *number != 0;
        return true;
    }

    bool readNumber(ondemand::value& value, std::optional<double>& number) {
        json_type type;
        return value.type().get(type) == simdjson::SUCCESS && readNumber(value, type, number);
    }

    // A value read as a number the way every reader reads counts (JSON::number()): a
    // number as it is, true and false as 1 and 0, a string that is wholly a decimal
    // number; anything else is no number. False when the value is not well-formed: an
    // integer beyond 64 bits is not, as a full parse has it.
    bool readNumber(ondemand::value& value, json_type type, std::optional<double>& number) {
        number.reset();
        switch (type) {
            case json_type::number: {
                ondemand::number parsed;
                if (value.get_number().get(parsed)) return false;
                number = parsed.as_double();
                return true;
            }
            case json_type::boolean: {
                bool flag;
                if (value.get_bool().get(flag)) return false;
                number = flag ? 1.0 : 0.0;
                return true;
            }
            case json_type::string: {
                std::string_view text;
                if (value.get_string().get(text)) return false;
                number = decimalNumber(text);
                return true;
            }
            case json_type::null: {
                bool isNull = false;
                return value.is_null().get(isNull) == simdjson::SUCCESS && isNull;
            }
            case json_type::object:
            case json_type::array:
                // Where a scalar was expected, and so rare: checked by parsing it whole.
                return wellFormed(value, type);
        }
        return false;
    }

    bool wellFormed(ondemand::value& value, json_type type) {
        std::string_view text;
        if (type == json_type::object) {
            ondemand::object object;
            if (value.get_object().get(object) || object.raw_json().get(text)) return false;
        } else {
            ondemand::array array;
            if (value.get_array().get(array) || array.raw_json().get(text)) return false;
        }
        return m_whole.parse(text).has_value();
    }

    JSONParser m_whole;  // the odd object or array where a scalar was expected
    std::string m_copy;  // a line with room after it
    SeenKeys m_seen;
    Scan::Folder m_folder;
};

}  // namespace

FoundRecords ClaudeCodeSource::scan(ScanCache& cache) const {
    // A projects folder reached twice (listed twice, or through a link) is read once.
    return recordsOfFiles(
        cache, LogRoots::files(TallyPaths::claudeProjectRoots(), {".jsonl"}, &cache.directories),
        [](const std::filesystem::path& file) { return parse(file); });
}

std::vector<UsageRecord> ClaudeCodeSource::parse(const std::filesystem::path& file) {
    LogParser parser;
    // Only the lines holding the key are split out of the stream at all.
    Scan::forEachLineContaining(file, LogParser::kUsage,
                                [&](std::string_view line) { parser.lineHoldingUsage(line); });
    return parser.finish();
}

std::vector<UsageRecord> ClaudeCodeSource::parse(std::string_view text) {
    LogParser parser;
    Scan::forEachLine(text, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

}  // namespace usagekit
