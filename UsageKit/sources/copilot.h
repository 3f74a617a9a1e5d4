// GitHub Copilot's JSON and JSON-lines files ($COPILOT_HOME or ~/.copilot, and its
// configuration folder) as usage records of the seat provider "github-copilot", one per line
// that carries token counts, folded per model, day and session (the file's name less its
// extension). The Copilot CLI's session-state/<id>/events.jsonl counts too: one record per
// model of each "session.shutdown" event, for session <id> and the working directory of the
// session's start.
// Never throws while parsing: a line that does not parse, has no tokens or no usable time,
// or holds a count beyond 64 bits is skipped; an unreadable file is empty.
#pragma once

#include "sources/usage_source.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace usagekit {

class CopilotSource : public UsageSource {
  public:
    Provider provider() const override { return Provider::copilot; }
    FoundRecords scan(ScanCache& cache) const override;

    static std::vector<std::filesystem::path> roots();
    // Under each root in turn: every ".jsonl" file, then every ".json" file.
    static std::vector<std::string> files(DirectoryIndex* index = nullptr);
    // One file's whole text; `session` names the records and the ids of lines without one.
    static std::vector<UsageRecord> parse(std::string_view text, const std::string& session);
    // The same for a file, streamed line by line, with the session sessionOf(file).
    static std::vector<UsageRecord> parseFile(const std::filesystem::path& file);
    // The folder's name for a CLI session's events.jsonl, else the file's name less its
    // extension.
    static std::string sessionOf(const std::filesystem::path& file);
};

}  // namespace usagekit
