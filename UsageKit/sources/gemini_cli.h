// The Gemini CLI's chats (<home>/.gemini/tmp/<project>/chats/session-*.jsonl, older ones a
// single session-*.json document) as usage records: one per model reply that carries
// token counts, folded per model, day, project and session.
// Never throws while parsing: an unreadable file is empty; a line or message that does
// not parse, has no counts or date, or holds a count beyond 64 bits is skipped.
#pragma once

#include "core/json.h"
#include "sources/usage_source.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace usagekit {

class GeminiCLISource : public UsageSource {
  public:
    struct TokenCounts {
        int64_t input = 0;  // uncached
        int64_t output = 0;
        int64_t cached = 0;
        int64_t thoughts = 0;
        bool operator==(const TokenCounts&) const = default;
    };

    Provider provider() const override { return Provider::geminiCLI; }
    FoundRecords scan(ScanCache& cache) const override;

    // The chat files below "tmp" of every Gemini home: ".jsonl" ones first, then ".json".
    static std::vector<std::string> files(DirectoryIndex* index = nullptr);
    // A ".jsonl" file is streamed line by line; a ".json" file is read whole.
    static std::vector<UsageRecord> parseFile(const std::filesystem::path& file);
    // The trimmed text of the nearest ".project_root" at or above the file's directory.
    static std::optional<std::string> projectName(const std::filesystem::path& near);
    // A message's counts in whichever spelling its client used; none when it has none
    // or one of them is beyond 64 bits.
    static std::optional<TokenCounts> tokenCounts(const JSON& message);

    // The document form: its "messages" array.
    static std::vector<UsageRecord> parse(const JSON& messages,
                                          const std::optional<std::string>& project,
                                          const std::string& session,
                                          const std::optional<std::string>& model);
    // The JSON-lines form. A message id written again replaces the earlier record in place.
    static std::vector<UsageRecord> parse(std::string_view text,
                                          const std::optional<std::string>& project,
                                          const std::string& fallbackSession);
};

}  // namespace usagekit
