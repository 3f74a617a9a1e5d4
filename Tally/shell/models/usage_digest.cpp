#include "shell/models/usage_digest.h"

#include "core/checked.h"

#include <algorithm>
#include <unordered_map>

namespace tally {

using namespace usagekit;

UsageDigest UsageDigest::of(std::shared_ptr<const UsageLedger> ledger, int64_t windowDays,
                            Date now) {
    UsageDigest digest;
    digest.windowDays = std::max<int64_t>(windowDays, 0);
    digest.now = now;
    digest.records = ledger->since(windowDays, now);
    const auto& records = digest.records;
    digest.totals = ledger->totals(records);
    digest.cacheSavings = ledger->cacheSavings(records);
    digest.providers = ledger->byProvider(records);
    digest.models = ledger->byModel(records);
    digest.projects = ledger->byProject(records);
    digest.sessions = ledger->bySession(records);
    digest.kinds = ledger->byKind(records);
    for (const UsageRecord& record : records) {
        auto [span, fresh] = digest.sessionSpans.try_emplace(record.session.value_or(std::string()),
                                                             SessionSpan{record.date, record.date});
        if (fresh) continue;
        span->second.first = std::min(span->second.first, record.date);
        span->second.last = std::max(span->second.last, record.date);
    }
    digest.ledger = std::move(ledger);
    return digest;
}

std::vector<UsageRecord> UsageDigest::ofProvider(const std::string& id) const {
    std::vector<UsageRecord> kept;
    for (const UsageRecord& record : records)
        if (record.provider.id == id) kept.push_back(record);
    return kept;
}

std::vector<UsageRecord> UsageDigest::ofProject(const std::string& name) const {
    std::vector<UsageRecord> kept;
    for (const UsageRecord& record : records)
        if (record.projectName() == name) kept.push_back(record);
    return kept;
}

std::vector<Date> UsageDigest::days() const {
    Date first;
    if (windowDays > 0) {
        first =
            Calendar::addingDays(now, static_cast<int>(-std::min<int64_t>(windowDays, 100'000)));
    } else {
        if (records.empty()) return {};
        first = records.back().date;  // newest first: the last is the oldest
    }
    Date last = now;
    if (!records.empty()) last = std::max(last, records.front().date);
    first = Calendar::startOfDay(first);
    last = Calendar::startOfDay(last);
    std::vector<Date> days;
    for (Date day = first; day <= last && days.size() < 100'000;
         day = Calendar::startOfDay(Calendar::addingDays(day, 1)))
        days.push_back(day);
    return days;
}

std::vector<UsageDigest::Unpriced> UsageDigest::unpriced() const {
    std::unordered_map<std::string, Unpriced> byModel;
    for (const std::string& model : totals.unpricedModels)
        byModel.emplace(model, Unpriced{model, 0, 0});
    if (byModel.empty()) return {};
    for (const UsageRecord& record : records) {
        if (!ledger->isUnpriced(record)) continue;
        auto it = byModel.find(record.model);
        if (it == byModel.end()) continue;
        it->second.records += 1;
        try {
            it->second.tokens = checkedAdd(it->second.tokens, record.total());
        } catch (const OutOfRange&) {
        }
    }
    std::vector<Unpriced> list;
    for (const std::string& model : totals.unpricedModels)
        list.push_back(byModel[model]);
    return list;
}

}  // namespace tally
