#include "sources/app_ledger.h"

#include "core/store.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;

UsageRecord numbered(int n, const Provider& provider = Provider::claudeCode) {
    UsageRecord r;
    r.id = std::string("app-").append(std::to_string(n));
    r.date = Date{1760000000.0 + n};
    r.provider = provider;
    r.model = "claude-sonnet-4-6";
    // Appended: GCC 12 wrongly flags "s" + std::string&& with -Wrestrict.
    r.session = std::string("s").append(std::to_string(n));
    r.kind = "session";
    r.calls = 1;
    r.input = n;
    return r;
}

class AppLedgerTest : public testing::TempHome {};

TEST_F(AppLedgerTest, AppendsKeepOrderAndEachRecordsProviderAndReadingCreatesNothing) {
    EXPECT_TRUE(AppLedger::all().empty());
    EXPECT_FALSE(fs::exists(AppLedger::file()));
    AppLedger::append(numbered(1, Provider::openAI));
    AppLedger::append(numbered(2));
    EXPECT_EQ(AppLedger::file(), support / "app-usage.json");
    auto records = AppLedger::all();
    EXPECT_EQ(records, (std::vector<UsageRecord>{numbered(1, Provider::openAI), numbered(2)}));
    ScanCache cache;
    EXPECT_EQ(AppLedger().scan(cache).all(), records);
    EXPECT_TRUE(cache.files.empty());
    EXPECT_EQ(AppLedger().provider(), Provider::claudeCode);
}

TEST_F(AppLedgerTest, TheOldestRecordGivesWayAt5000) {
    std::vector<UsageRecord> full;
    for (int n = 0; n < 5000; ++n)
        full.push_back(numbered(n));
    Store::save(full, AppLedger::file());
    AppLedger::append(numbered(5000));
    auto records = AppLedger::all();
    ASSERT_EQ(records.size(), 5000u);
    EXPECT_EQ(records.front().id, "app-1");
    EXPECT_EQ(records.back().id, "app-5000");
}

TEST_F(AppLedgerTest, ADamagedFileReadsAsEmptyAndTheNextAppendReplacesIt) {
    // Not JSON, JSON of another shape, and an array with one record that does not decode.
    for (const std::string& damaged :
         {std::string("{\"records\": [tru"), std::string("{\"records\":[]}"),
          // Appended: GCC 12 wrongly flags "[" + std::string&& with -Wrestrict.
          std::string("[")
              .append(jsonData(numbered(1), false))
              .append(",{\"id\":\"half a record\"}]")}) {
        testing::writeText(AppLedger::file(), damaged);
        EXPECT_TRUE(AppLedger::all().empty()) << damaged;
        AppLedger::append(numbered(7));
        EXPECT_EQ(AppLedger::all(), std::vector<UsageRecord>{numbered(7)}) << damaged;
    }
}

}  // namespace
}  // namespace usagekit
