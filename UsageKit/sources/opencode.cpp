#include "sources/opencode.h"

#include "core/checked.h"
#include "core/paths.h"
#include "core/scan.h"
#include "core/uuid.h"
#include "sources/epoch.h"
#include "sources/sqlite_read.h"

#include <cmath>

namespace usagekit {

const std::string_view OpenCodeSource::kQuery =
    "SELECT id,\n"
    "       json_extract(data, '$.time.completed') AS at,\n"
    "       json_extract(data, '$.modelID') AS model,\n"
    "       json_extract(data, '$.providerID') AS via,\n"
    "       json_extract(data, '$.cost') AS cost,\n"
    "       json_extract(data, '$.tokens.input') AS input,\n"
    "       json_extract(data, '$.tokens.output') AS output,\n"
    "       json_extract(data, '$.tokens.reasoning') AS reasoning,\n"
    "       json_extract(data, '$.tokens.cache.read') AS cacheRead,\n"
    "       json_extract(data, '$.tokens.cache.write') AS cacheWrite,\n"
    "       json_extract(data, '$.path.cwd') AS cwd,\n"
    "       session_id AS session\n"
    "FROM message\n"
    "WHERE json_extract(data, '$.role') = 'assistant'\n"
    "  AND COALESCE(json_extract(data, '$.tokens.total'), 0) > 0";

std::optional<UsageRecord> OpenCodeSource::record(const JSON& row) {
    if (!row.isObject()) return std::nullopt;
    // OpenCode writes milliseconds; older rows and other writers have had seconds.
    const JSON at = row["at"];
    if (at.kind() != JSON::Kind::Number) return std::nullopt;
    auto date = Epoch::secondsOrMilliseconds(*at.number());
    if (!date) return std::nullopt;

    UsageRecord r;
    try {
        r.input = row["input"].integer();
        r.output = row["output"].integer();
        r.cacheRead = row["cacheRead"].integer();
        r.cacheWrite = row["cacheWrite"].integer();
        r.reasoning = row["reasoning"].integer();
    } catch (const OutOfRange&) {
        return std::nullopt;
    }

    auto id = row["id"].string();
    r.id = id ? std::string(*id) : randomUUID();
    r.date = *date;
    r.provider = Provider::openCode;
    auto model = row["model"].string();
    r.model = model ? std::string(*model) : "opencode";
    // One model name can be served by several providers at different prices.
    if (auto via = row["via"].string(); via && !via->empty())
        r.model = std::string(*via) + "/" + r.model;
    if (auto cwd = row["cwd"].string()) r.project = std::string(*cwd);
    if (auto session = row["session"].string()) r.session = std::string(*session);
    r.kind = "session";
    r.calls = 1;
    // OpenCode writes 0 when it does not know the price; then our pricing decides.
    if (const JSON cost = row["cost"];
        cost.kind() == JSON::Kind::Number && std::isfinite(*cost.number()) && *cost.number() > 0)
        r.reportedCostUSD = *cost.number();
    return r;
}

FoundRecords OpenCodeSource::scan(ScanCache& cache) const {
    const auto database = TallyPaths::openCodeDatabase();
    std::error_code ec;
    if (!std::filesystem::exists(database, ec)) return {};
    // Opening and querying the database costs more than the rest of a rescan of its
    // source, so while neither the database nor its write-ahead log changed, the records
    // come from the cache. Their times must match exactly: SQLite rewrites pages in place,
    // and a log it restarts after a checkpoint keeps its size. The stamps are taken before
    // the query, so a write during it only makes the next scan query again.
    const std::string databasePath = database.string(), logPath = databasePath + "-wal";
    const ScanCache::Stamp databaseNow = ScanCache::stamp(databasePath),
                           logNow = ScanCache::stamp(logPath);
    auto cached = cache.hit(databasePath, databaseNow, ScanCache::Times::exactly);
    const auto cachedLog = cache.hit(logPath, logNow, ScanCache::Times::exactly);
    if (cached && cachedLog) {
        FoundRecords found;
        found.add(std::move(*cached), cache);
        return found;
    }

    JSONDocument rows = SQLiteRead::query(database, std::string(kQuery));
    std::vector<UsageRecord> records;
    for (const JSON& row : rows.root().array())
        if (auto r = record(row)) records.push_back(std::move(*r));
    // The query already kept only messages with tokens, so nothing is dropped here.
    records = Scan::fold(records);
    cache.store(databasePath, databaseNow, records);
    cache.store(logPath, logNow, {});
    return records;
}

}  // namespace usagekit
