#include "accounts/cursor.h"

#include "accounts/endpoints.h"
#include "accounts/http.h"
#include "core/checked.h"
#include "core/paths.h"
#include "core/scan.h"
#include "sources/sqlite_read.h"

#include <cmath>

namespace usagekit {

namespace {

constexpr double kRequestSeconds = 40;
constexpr const char* kTokenQuery =
    "SELECT value FROM ItemTable WHERE key = 'cursorAuth/accessToken' LIMIT 1;";

std::string milliseconds(Date date) {
    return std::to_string(static_cast<int64_t>(std::trunc(date.secondsSince1970 * 1000)));
}

std::string pageBody(int page, const std::string& start, const std::string& end) {
    JsonWriter body(false);
    body.beginObject();
    body.key("page");
    body.value(page);
    body.key("pageSize");
    body.value(CursorSource::kPageSize);
    body.key("startDate");
    body.value(start);
    body.key("endDate");
    body.value(end);
    body.endObject();
    return body.take();
}

std::optional<UsageRecord> eventRecord(JSON event) {
    JSON tokens = event["tokenUsage"];
    UsageRecord r;
    r.input = tokens["inputTokens"].integer();
    r.output = tokens["outputTokens"].integer();
    r.cacheRead = tokens["cacheReadTokens"].integer();
    r.cacheWrite = tokens["cacheWriteTokens"].integer();
    auto cents = event["chargedCents"].number();
    if (!cents) cents = tokens["totalCents"].number();
    // An event may carry only a charge (tokens not reported); it still cost money.
    if (r.total() < 1 && !(cents && *cents > 0)) return std::nullopt;
    auto stamp = event["timestamp"].number();
    if (!stamp || !(*stamp > 0)) return std::nullopt;

    const auto conversation = event["conversationId"].string();
    r.model = std::string(event["model"].string().value_or("cursor"));
    r.id = std::string(conversation.value_or("cursor")) + "-" +
           std::to_string(truncatedCount(*stamp)) + "-" + r.model;
    r.date = Date{*stamp / 1000};
    const bool usageBased =
        event["kind"].string().value_or("").find("USAGE_BASED") != std::string_view::npos;
    r.provider = usageBased ? Provider::cursorOnDemand : Provider::cursorAgent;
    r.kind = usageBased ? "on-demand" : "included";
    if (conversation) r.session = std::string(*conversation);
    r.calls = 1;
    if (cents) r.reportedCostUSD = *cents / 100;
    return r;
}

}  // namespace

std::optional<std::string> CursorSource::accessToken(const std::filesystem::path& database) {
    try {
        JSONDocument rows = SQLiteRead::query(database, kTokenQuery);
        auto token = rows.root()[size_t{0}]["value"].string();
        if (!token || token->empty()) return std::nullopt;
        return std::string(*token);
    } catch (const std::exception&) {
        // A database Cursor is rewriting, or one of another shape: no sign-in to use.
        return std::nullopt;
    }
}

JSONDocument CursorSource::post(const std::string& method, const std::string& token,
                                const std::string& body) {
    return HTTP::post(Endpoints::cursor() + "/aiserver.v1.DashboardService/" + method,
                      {{"Authorization", "Bearer " + token}, {"Connect-Protocol-Version", "1"}},
                      body, kRequestSeconds);
}

std::vector<UsageRecord> CursorSource::fetch(Date now) {
    auto token = accessToken(TallyPaths::cursorDatabase());
    if (!token) return {};
    const std::string start = milliseconds(Calendar::addingDays(now, -365));
    const std::string end = milliseconds(now);
    std::vector<UsageRecord> collected;
    for (int page = 1; page <= kMaximumPages; ++page) {
        JSONDocument answer = post("GetFilteredUsageEvents", *token, pageBody(page, start, end));
        auto found = records(answer.root());
        collected.insert(collected.end(), found.begin(), found.end());
        int64_t total = 0;
        try {
            total = answer.root()["totalUsageEventsCount"].integer();
        } catch (const OutOfRange&) {
            // An absurd total tells nothing; page on as without one.
        }
        // An empty page means the service has nothing more, whatever its total says.
        if (answer.root()["usageEventsDisplay"].array().empty()) break;
        if (total >= 1 && static_cast<int64_t>(collected.size()) >= total) break;
    }
    return Scan::fold(collected);
}

std::vector<UsageRecord> CursorSource::records(JSON answer) {
    std::vector<UsageRecord> out;
    for (JSON event : answer["usageEventsDisplay"].array()) {
        try {
            if (auto r = eventRecord(event)) out.push_back(std::move(*r));
        } catch (const OutOfRange&) {
            // A count beyond 64 bits spoils only its own event.
        }
    }
    return out;
}

}  // namespace usagekit
