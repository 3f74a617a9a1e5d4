#include "accounts/openai_usage.h"

#include "accounts/endpoints.h"
#include "accounts/keyed_request.h"
#include "core/checked.h"

#include <algorithm>
#include <cmath>

namespace usagekit {

namespace {

std::optional<UsageRecord> record(JSON result, Date start) {
    if (!result.isObject()) return std::nullopt;
    UsageRecord r;
    r.date = start;
    r.provider = Provider::openAI;
    r.model = std::string(result["model"].string().value_or("unknown"));
    r.id = "openai-" + doubleDescription(start.secondsSince1970) + "-" + r.model;
    if (auto project = result["project_id"].string()) r.project = std::string(*project);
    r.kind = "api";
    r.calls = result["num_model_requests"].integer();
    const int64_t cached = result["input_cached_tokens"].integer();
    // input_tokens includes the cached part; a larger cached count floors at zero.
    r.input = std::max<int64_t>(checkedSub(result["input_tokens"].integer(), cached), 0);
    r.output = result["output_tokens"].integer();
    r.cacheRead = cached;
    if (checkedAdd(checkedAdd(r.input, r.output), r.cacheRead) < 1) return std::nullopt;
    return r;
}

}  // namespace

std::vector<UsageRecord> OpenAIUsageSource::fetch(int days) {
    return fetch(days, Date::now());
}

std::vector<UsageRecord> OpenAIUsageSource::fetch(int days, Date now) {
    const double start = Calendar::addingDays(now, -days).secondsSince1970;
    auto answer =
        KeyedRequest::get(keyAccount, Endpoints::openAI() + "/v1/organization/usage/completions",
                          {{"start_time", std::to_string(static_cast<int64_t>(std::trunc(start)))},
                           {"bucket_width", "1d"},
                           {"limit", "31"},
                           {"group_by[]", "model"}});
    return answer ? records(answer->root()) : std::vector<UsageRecord>();
}

std::vector<UsageRecord> OpenAIUsageSource::records(JSON answer) {
    std::vector<UsageRecord> out;
    for (JSON bucket : answer["data"].array()) {
        // A bucket without a start still counts, dated 1970: the report is the authority.
        const double start = bucket["start_time"].number().value_or(0);
        for (JSON result : bucket["results"].array()) {
            try {
                if (auto r = record(result, Date{start})) out.push_back(std::move(*r));
            } catch (const OutOfRange&) {
                // A count beyond 64 bits spoils only its own result.
            }
        }
    }
    return out;
}

}  // namespace usagekit
