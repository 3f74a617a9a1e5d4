// Grok CLI's update streams (~/.grok/sessions/<project, percent-encoded>/<session>/
// *updates.jsonl) as usage records: one per model of each completed turn, with the cost
// the tool reported, folded per model, day, project and session.
// Never throws while parsing: a broken line, or a count beyond 64 bits, drops only what
// holds it; an unreadable file is empty.
#pragma once

#include "sources/usage_source.h"

#include <filesystem>
#include <vector>

namespace usagekit {

class GrokCLISource : public UsageSource {
  public:
    Provider provider() const override { return Provider::grokCLI; }
    FoundRecords scan(ScanCache& cache) const override;

    // One update stream, streamed line by line. The session is the name of the file's
    // directory, the project the name of that directory's parent, percent-decoded.
    static std::vector<UsageRecord> parse(const std::filesystem::path& file);
};

}  // namespace usagekit
