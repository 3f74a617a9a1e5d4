// Codex forks. A forked session's rollout starts with its own session_meta, whose payload
// names the parent thread in "forked_from_id"; Codex then writes the parent's whole rollout
// into it again (the parent's session_meta, turn contexts and token_count events included)
// under fresh timestamps, and only then the fork's own turns. It seeds the fork's token
// counter from the last replayed token_count, so the fork's running totals go on from the
// parent's. (codex-rs/core: record_initial_history, InitialHistory::Forked; the rollout
// writer stamps every line with the time it writes it.)
//
// Nothing in the fork's file marks where the replay ends, and its timestamps are no help.
// The parent's own log is: the replay repeats the parent's running totals from its start,
// one for one, so the fork's turns begin where its totals part from the parent's.
// Plain functions; the lookup may be called from any thread.
#pragma once

#include "sources/codex_cli.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace usagekit::CodexForks {

using Counts = CodexCLISource::Counts;

// What of a parent's log a fork may have replayed.
struct ParentLog {
    std::vector<Counts>
        totals;  // every running total, in order, a repeat of the one before left out
    std::unordered_set<std::string> recordKeys;  // the keys of its token_usage_record lines
};

// Finds a thread's log by its id and reads it; absent when no log has that id.
using ParentLookup = std::function<std::optional<ParentLog>(std::string_view threadId)>;

// Looks threads up among `logs` ("rollout-<time>-<id>.jsonl", or ".jsonl.zst"), which must
// outlive the lookup.
ParentLookup lookupIn(const std::vector<std::string>& logs);

// A log's running totals and record keys, read as the Codex parser reads them.
ParentLog read(const std::filesystem::path& log);

// How many of a fork's running totals (in order, repeats left out) are the replay: the
// length of their longest common start with the parent's.
size_t replayedTurns(const std::vector<Counts>& fork, const std::vector<Counts>& parent);

}  // namespace usagekit::CodexForks
