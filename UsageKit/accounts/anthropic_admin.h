// The Anthropic organisation's daily usage report, read with an admin key, as records of
// "anthropic-api". One request covers at most 31 days; results come back in report
// order, unsorted and unmerged. A result that does not parse (a wrong type, a count
// beyond 64 bits) is dropped alone; only HTTP and transport failures throw.
#pragma once

#include "core/date.h"
#include "core/json.h"
#include "core/usage_record.h"

#include <vector>

namespace usagekit {

struct AnthropicAdminSource {
    static constexpr const char* keyAccount = "anthropic-admin-key";

    // No key: nothing is sent and the result is empty. Throws HTTP::Err and
    // HTTP::TransportError as HTTP::get does.
    static std::vector<UsageRecord> fetch(int days);
    static std::vector<UsageRecord> fetch(int days, Date now);
    // The records of one report answer; never throws.
    static std::vector<UsageRecord> records(JSON answer);
};

}  // namespace usagekit
