// Cursor's usage, asked of Cursor's dashboard service with the sign-in Cursor keeps in its
// own settings database (read only). Events become records of "cursor-agent" (included in
// the plan) or "cursor-on-demand" (billed by consumption), folded per model, day and
// conversation. No database or no token: nothing is sent. Events that do not parse are
// skipped one by one; HTTP and transport failures throw for the ledger to report.
#pragma once

#include "core/date.h"
#include "core/json.h"
#include "core/usage_record.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace usagekit {

struct CursorSource {
    // Paging stops here even when the service claims more events.
    static constexpr int kMaximumPages = 40;
    static constexpr int kPageSize = 100;

    // The events of the year before `now`.
    static std::vector<UsageRecord> fetch(Date now);
    // The access token in Cursor's ItemTable (a plain string), or nothing when the
    // database is missing, unreadable or holds none.
    static std::optional<std::string> accessToken(const std::filesystem::path& database);
    // POSTs `body` (compact JSON) to a method of the dashboard service, 40 seconds at most.
    // Throws HTTP::Err and HTTP::TransportError.
    static JSONDocument post(const std::string& method, const std::string& token,
                             const std::string& body);
    // The records of one answer, unfolded, in event order. Never throws.
    static std::vector<UsageRecord> records(JSON answer);
};

}  // namespace usagekit
