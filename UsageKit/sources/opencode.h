// OpenCode's history database (~/.local/share/opencode/opencode.db) as usage records: one
// per assistant message with tokens, folded per model, day, project and session. The
// database is queried read-only, and only when it or its write-ahead log changed since the
// scan cache recorded them.
// A query SQLite refuses (locked, damaged, no "message" table) fails the whole source with
// SQLiteRead::Failure; a row that lacks a time or holds a count beyond 64 bits is skipped.
#pragma once

#include "core/json.h"
#include "sources/usage_source.h"

#include <optional>
#include <string_view>
#include <vector>

namespace usagekit {

class OpenCodeSource : public UsageSource {
  public:
    // One row per assistant message that used any tokens, with the columns record() reads.
    static const std::string_view kQuery;

    Provider provider() const override { return Provider::openCode; }
    FoundRecords scan(ScanCache& cache) const override;

    // One row of kQuery's result; none without a time after 1970 or with a bad count. The
    // time and the cost must be JSON numbers (json_extract gives a JSON string as text,
    // which is no time and no cost); counts may also be numeric text.
    static std::optional<UsageRecord> record(const JSON& row);
};

}  // namespace usagekit
