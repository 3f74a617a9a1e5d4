#include "sources/app_ledger.h"

#include "core/paths.h"
#include "core/store.h"

namespace usagekit {

std::filesystem::path AppLedger::file() {
    return TallyPaths::state("app-usage.json");
}

std::vector<UsageRecord> AppLedger::all() {
    return Store::loadOrMoveAside<std::vector<UsageRecord>>(file()).value_or(
        std::vector<UsageRecord>());
}

void AppLedger::append(const UsageRecord& record) {
    std::vector<UsageRecord> records = all();
    records.push_back(record);
    if (records.size() > kLimit)
        records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(kLimit));
    // Losing one record is better than failing the caller's work over bookkeeping.
    Store::saveQuietly(records, file());
}

FoundRecords AppLedger::scan(ScanCache&) const {
    return all();
}

}  // namespace usagekit
