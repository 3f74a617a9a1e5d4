#include "accounts/anthropic_admin.h"

#include "accounts/endpoints.h"
#include "accounts/keyed_request.h"
#include "core/checked.h"
#include "core/scan.h"

#include <algorithm>

namespace usagekit {

namespace {

// The report's page holds 31 daily buckets; asking for more days would need paging.
constexpr int kMaximumDays = 31;

// The admin key goes as is in its own header, with the API version the report needs.
HTTP::Headers adminHeaders(const std::string& key) {
    return {{"x-api-key", key}, {"anthropic-version", "2023-06-01"}};
}

std::optional<UsageRecord> record(JSON result, std::string_view start, Date date) {
    if (!result.isObject()) return std::nullopt;
    UsageRecord r;
    r.id = "anthropic-" + std::string(start) + "-";
    r.date = date;
    r.provider = Provider::anthropic;
    r.model = std::string(result["model"].string().value_or("unknown"));
    r.id += r.model;
    if (auto workspace = result["workspace_id"].string()) r.project = std::string(*workspace);
    r.kind = "api";
    r.input = result["uncached_input_tokens"].integer();
    r.output = result["output_tokens"].integer();
    r.cacheRead = result["cache_read_input_tokens"].integer();
    // Cache writes come only from the nested object; the older flat
    // cache_creation_input_tokens would count the same tokens twice.
    JSON creation = result["cache_creation"];
    r.cacheWrite = checkedAdd(creation["ephemeral_1h_input_tokens"].integer(),
                              creation["ephemeral_5m_input_tokens"].integer());
    if (r.total() < 1) return std::nullopt;
    return r;
}

}  // namespace

std::vector<UsageRecord> AnthropicAdminSource::fetch(int days) {
    return fetch(days, Date::now());
}

std::vector<UsageRecord> AnthropicAdminSource::fetch(int days, Date now) {
    Date start = Calendar::addingDays(now, -std::min(days, kMaximumDays));
    auto answer = KeyedRequest::get(
        keyAccount, Endpoints::anthropic() + "/v1/organizations/usage_report/messages",
        {{"starting_at", ISO8601::format(start)},
         {"bucket_width", "1d"},
         {"limit", "31"},
         {"group_by[]", "model"}},
        adminHeaders);
    return answer ? records(answer->root()) : std::vector<UsageRecord>();
}

std::vector<UsageRecord> AnthropicAdminSource::records(JSON answer) {
    std::vector<UsageRecord> out;
    for (JSON bucket : answer["data"].array()) {
        auto start = bucket["starting_at"].string();
        if (!start) continue;
        auto date = Scan::date(*start);
        if (!date) continue;
        for (JSON result : bucket["results"].array()) {
            try {
                if (auto r = record(result, *start, *date)) out.push_back(std::move(*r));
            } catch (const OutOfRange&) {
                // A count beyond 64 bits spoils only its own result.
            }
        }
    }
    return out;
}

}  // namespace usagekit
