#include "sources/codex_cli.h"

#include "core/checked.h"
#include "core/line_reader.h"
#include "core/log_bytes.h"
#include "core/paths.h"
#include "core/scan.h"
#include "sources/codex_forks.h"
#include "sources/log_roots.h"
#include "sources/log_source.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

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

using Markers = CodexCLISource::Markers;

constexpr std::string_view kSessionMeta = "session_meta\"", kTurnContext = "turn_context\"",
                           kTokenCount = "token_count\"", kUsageRecord = "token_usage_record\"";

// Notes the word, if any, that `rest` (the line after a quote) starts with. True when the
// rest of the line cannot change the answer: a usage record was found, or any word will do.
bool noteWord(std::string_view rest, bool anyWillDo, Markers& found) {
    if (rest.starts_with('s')) {
        found.any |= rest.starts_with(kSessionMeta);
    } else if (rest.starts_with('t')) {
        if (rest.starts_with(kUsageRecord)) {
            found.any = found.usageRecord = true;
            return true;
        }
        found.any |= rest.starts_with(kTurnContext) || rest.starts_with(kTokenCount);
    }
    return found.any && anyWillDo;
}

// Every quote from `from` on, one memchr at a time.
Markers walkQuotes(std::string_view line, size_t from, bool anyWillDo, Markers found) {
    const char* p = line.data() + from;
    const char* end = line.data() + line.size();
    while ((p = static_cast<const char*>(std::memchr(p, '"', static_cast<size_t>(end - p))))) {
        ++p;
        if (noteWord(std::string_view(p, static_cast<size_t>(end - p)), anyWillDo, found)) break;
    }
    return found;
}

#if defined(__x86_64__)
// One bit for each of the 32 positions from `p` that holds a quote followed by "s" or "t".
__attribute__((target("avx2"))) inline uint32_t quoteThenSOrT(const char* p) {
    const __m256i here = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 1));
    const __m256i sOrT = _mm256_or_si256(_mm256_cmpeq_epi8(next, _mm256_set1_epi8('s')),
                                         _mm256_cmpeq_epi8(next, _mm256_set1_epi8('t')));
    return static_cast<uint32_t>(_mm256_movemask_epi8(
        _mm256_and_si256(_mm256_cmpeq_epi8(here, _mm256_set1_epi8('"')), sOrT)));
}

// Response items are nearly all of a log's bytes and hold none of the words, so the line is
// searched 64 positions at a time for a quote followed by "s" or "t", as every word
// begins. Quotes are everywhere in JSON, but few are followed by either letter; each
// such place is checked in order, as the plain walk would.
__attribute__((target("avx2"))) Markers markersAVX2(std::string_view line, bool anyWillDo) {
    const char* p = line.data();
    const size_t n = line.size();
    Markers found;
    size_t i = 0;
    for (; i + 64 + 1 <= n; i += 64) {
        uint64_t mask = quoteThenSOrT(p + i) | uint64_t{quoteThenSOrT(p + i + 32)} << 32;
        while (mask) {
            const size_t at = i + static_cast<size_t>(__builtin_ctzll(mask)) + 1;
            if (noteWord(line.substr(at), anyWillDo, found)) return found;
            mask &= mask - 1;
        }
    }
    return walkQuotes(line, i, anyWillDo, found);
}

#endif

}  // namespace

Markers CodexCLISource::markers(std::string_view line, bool anyWillDo) {
#if defined(__x86_64__)
    if (Scan::hasAVX2()) return markersAVX2(line, anyWillDo);
#endif
    return walkQuotes(line, 0, anyWillDo, {});
}

namespace {

// The state of one file's parse. Each file gets its own, so files can be parsed on
// different threads.
//
// A file that holds a "token_usage_record" anywhere is read from those records alone;
// otherwise from the running totals of its "token_count" events. Both kinds are
// folded in the one pass, each with its own state, and one fold is kept at the end:
// once a record line has been seen the totals are no longer followed.
//
// A fork's log first replays its parent's whole log (see codex_forks.h): its turns are held
// back until the end, when the parent is looked up and the replayed ones are left out.
class LogParser {
  public:
    explicit LogParser(std::string fallbackSession,
                       const CodexForks::ParentLookup* parents = nullptr)
        : m_session(std::move(fallbackSession)), m_parents(parents) {
        m_record.provider = Provider::codexCLI;
        m_record.calls = 1;
    }

    void line(std::string_view text) {
        const Markers found = CodexCLISource::markers(text, m_recordMode);
        if (found.usageRecord && !m_recordMode) {
            m_recordMode = true;
            m_fromTotals = {};
        }
        if (!found.any) return;
        // One parser per thread, kept from log to log, so its buffers are allocated once.
        thread_local JSONParser parser;
        auto root = parser.parse(text);
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
        if (m_forkedFrom) countForkOwnTurns();
        return m_recordMode ? m_fromRecords.take() : m_fromTotals.take();
    }

  private:
    void sessionMeta(const JSON& payload) {
        if (!payload.isObject()) return;
        // In a fork every later session_meta is its parent's (or an ancestor's), replayed:
        // the fork keeps its own session, project and kind.
        if (m_forkedFrom) return;
        if (!m_metaSeen) {
            m_metaSeen = true;
            if (auto parent = payload["forked_from_id"].string()) m_forkedFrom.emplace(*parent);
        }
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
        if (m_forkedFrom) {
            if (build(*date, counts)) m_forkRecords.push_back({std::string(key), m_record});
            return;
        }
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
        if (m_forkedFrom) m_forkTotals.push_back(current);
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
        if (m_forkedFrom) {
            if (build(*date, delta)) m_forkTurns.push_back({m_forkTotals.size() - 1, m_record});
            return;
        }
        count(m_fromTotals, *date, delta);
    }

    // The fork's own turns, now that the whole file is read: with record lines, those whose
    // key the parent's log does not hold; with running totals, those after the longest
    // run of totals that repeats the parent's from its start. Without the parent's log
    // (deleted, or parsed from text alone) every turn counts, as in any other log.
    void countForkOwnTurns() {
        const std::optional<CodexForks::ParentLog> parent =
            m_parents ? (*m_parents)(*m_forkedFrom) : std::nullopt;
        for (const auto& [key, record] : m_forkRecords)
            if (!parent || !parent->recordKeys.contains(key)) m_fromRecords.add(record);
        const size_t replayed =
            parent ? CodexForks::replayedTurns(m_forkTotals, parent->totals) : 0;
        for (const auto& [event, record] : m_forkTurns)
            if (event >= replayed) m_fromTotals.add(record);
    }

    // One request, folded as it comes. The record is rewritten in place each time, and its
    // id is left empty because folding replaces it, so a request that adds to a fold seen
    // before allocates nothing.
    void count(Scan::Folder& into, Date date, const Counts& counts) {
        if (build(date, counts)) into.add(m_record);
    }

    // Rewrites m_record for one request; false when it holds no tokens.
    bool build(Date date, const Counts& counts) {
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
        return Scan::hasTokens(r);
    }

    // Assigning into the string already there reuses its memory.
    static void assign(std::optional<std::string>& to, std::string_view text) {
        if (to)
            to->assign(text);
        else
            to.emplace(text);
    }

    std::string m_session;
    std::optional<std::string> m_project;
    std::optional<std::string> m_model;
    bool m_subThread = false;
    bool m_recordMode = false;
    std::optional<Counts> m_previous;
    SeenKeys m_seen;
    UsageRecord m_record;
    // A fork's parent, from its first session_meta, and its turns held back until the end:
    // every distinct running total in order, each turn with the index of its total, and
    // each record line with its key.
    const CodexForks::ParentLookup* m_parents;
    bool m_metaSeen = false;
    std::optional<std::string> m_forkedFrom;
    std::vector<Counts> m_forkTotals;
    std::vector<std::pair<size_t, UsageRecord>> m_forkTurns;
    std::vector<std::pair<std::string, UsageRecord>> m_forkRecords;
    Scan::Folder m_fromRecords;
    Scan::Folder m_fromTotals;
};

}  // namespace

namespace {

std::vector<UsageRecord> parseLog(const std::filesystem::path& file,
                                  const CodexForks::ParentLookup* parents) {
    LogParser parser(std::string(logStem(file.filename().native())), parents);
    Scan::forEachLineInFile(file, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

}  // namespace

std::vector<std::string> CodexCLISource::files(DirectoryIndex* index) {
    std::vector<std::string> found;
    for (const auto& root :
         LogRoots::distinct({TallyPaths::codexSessions(), TallyPaths::codexArchived()})) {
        for (std::string& file : Scan::files(root, {".jsonl", ".jsonl.zst"}, index)) {
            if (std::string_view(file).substr(file.rfind('/') + 1).starts_with("rollout-"))
                found.push_back(std::move(file));
        }
    }
    return LogRoots::withoutCompressedTwins(std::move(found));
}

FoundRecords CodexCLISource::scan(ScanCache& cache) const {
    const std::vector<std::string> logs = files(&cache.directories);
    const CodexForks::ParentLookup parents = CodexForks::lookupIn(logs);
    return recordsOfFiles(
        cache, logs, [&](const std::filesystem::path& file) { return parseLog(file, &parents); });
}

std::vector<UsageRecord> CodexCLISource::parse(std::string_view text,
                                               const std::string& fallbackSession) {
    LogParser parser(fallbackSession);
    Scan::forEachLine(text, [&](std::string_view line) { parser.line(line); });
    return parser.finish();
}

std::vector<UsageRecord> CodexCLISource::parse(const std::filesystem::path& file) {
    return parseLog(file, nullptr);
}

}  // namespace usagekit
