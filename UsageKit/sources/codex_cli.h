// Codex CLI's session logs (rollout-*.jsonl under $CODEX_HOME or ~/.codex: sessions/, then
// archived_sessions/) as usage records, folded per model, day, project and session. Codex
// compresses a rollout idle for a week to rollout-*.jsonl.zst, read the same way; while a
// plain copy lies beside it, only the plain one is read.
// A log is a stream of events: newer logs write one "token_usage_record" per turn, older
// ones only running totals, which become per-turn differences here.
// Never throws while parsing: a broken line, or one with a count beyond 64 bits, is
// skipped; an unreadable file is empty.
#pragma once

#include "core/json.h"
#include "sources/usage_source.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace usagekit {

class CodexCLISource : public UsageSource {
  public:
    // The five counts of one usage object. Codex counts the cached part inside
    // input_tokens.
    struct Counts {
        int64_t input = 0;
        int64_t cachedInput = 0;
        int64_t cacheWrite = 0;
        int64_t output = 0;
        int64_t reasoning = 0;

        Counts() = default;
        // All 0 when `json` is not an object; a missing or non-numeric count reads 0.
        // Throws OutOfRange for a count beyond 64 bits.
        explicit Counts(const JSON& json);
        bool operator==(const Counts&) const = default;
    };

    // What a line may hold, told from its bytes before it is parsed: `any` when one of the
    // quoted words "session_meta", "turn_context", "token_count" and "token_usage_record"
    // occurs in it, `usageRecord` when the last one does. With `anyWillDo` the search stops
    // at the first word, and `usageRecord` tells only whether that word was the last one.
    // Public so that its test can compare it with a plain search.
    struct Markers {
        bool any = false;
        bool usageRecord = false;
        bool operator==(const Markers&) const = default;
    };
    static Markers markers(std::string_view line, bool anyWillDo);

    Provider provider() const override { return Provider::codexCLI; }
    FoundRecords scan(ScanCache& cache) const override;

    // Files named "rollout-*" ending in ".jsonl" or ".jsonl.zst": the live sessions, then
    // the archived, a compressed log left out while its plain twin is there.
    static std::vector<std::string> files(DirectoryIndex* index = nullptr);

    // One log's text; records without a session_meta carry `fallbackSession`.
    static std::vector<UsageRecord> parse(std::string_view text,
                                          const std::string& fallbackSession);
    // The same, streamed (and decompressed) from a file, with the file's name less
    // ".jsonl" or ".jsonl.zst" as the fallback session.
    static std::vector<UsageRecord> parse(const std::filesystem::path& file);
};

}  // namespace usagekit
