// The OpenAI organisation's daily completions usage, read with an admin key, as records
// of "openai-api". One page is asked for (31 daily buckets); results come back in report
// order. The report counts cached input inside input_tokens; records keep it apart. A
// result that does not parse is dropped alone; only HTTP and transport failures throw.
#pragma once

#include "core/date.h"
#include "core/json.h"
#include "core/usage_record.h"

#include <vector>

namespace usagekit {

struct OpenAIUsageSource {
    static constexpr const char* keyAccount = "openai-admin-key";

    // No key: nothing is sent and the result is empty. Throws HTTP::Err and
    // HTTP::TransportError as HTTP::get does.
    static std::vector<UsageRecord> fetch(int days);
    static std::vector<UsageRecord> fetch(int days, Date now);
    // The records of one usage answer; never throws.
    static std::vector<UsageRecord> records(JSON answer);
};

}  // namespace usagekit
