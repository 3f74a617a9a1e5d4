// Claude Code's conversation logs (<home>/projects/<project>/<session>.jsonl, and the
// sub-agent logs below them, for each home of TallyPaths::claudeProjectRoots) as usage
// records: one per request, folded per model, day, project and session.
// Never throws while parsing: a line that is not JSON, carries no usage, repeats a request
// already counted, or holds a count beyond 64 bits is skipped; an unreadable file is empty.
#pragma once

#include "sources/usage_source.h"

#include <filesystem>
#include <string_view>
#include <vector>

namespace usagekit {

class ClaudeCodeSource : public UsageSource {
  public:
    Provider provider() const override { return Provider::claudeCode; }
    FoundRecords scan(ScanCache& cache) const override;

    // One log file, streamed line by line; never held whole in memory.
    static std::vector<UsageRecord> parse(const std::filesystem::path& file);
    // The same for a log's text already in memory.
    static std::vector<UsageRecord> parse(std::string_view text);
};

}  // namespace usagekit
