#include "ledger/usage_ledger.h"

#include "core/scan_cache.h"
#include "sources/app_ledger.h"
#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace usagekit {
namespace fs = std::filesystem;
namespace {

UsageRecord rec(const Provider& provider, const std::string& session, double when) {
    UsageRecord r = testing::record(provider, "m", 1, Date{when});
    if (!session.empty()) r.session = session;
    return r;
}

// A source that returns fixed records, or throws, after taking its time.
class FixedSource : public UsageSource {
  public:
    FixedSource(Provider provider, std::vector<UsageRecord> records, const char* failure = nullptr,
                std::chrono::milliseconds takes = {})
        : m_provider(std::move(provider)),
          m_records(std::move(records)),
          m_failure(failure),
          m_takes(takes) {}
    Provider provider() const override { return m_provider; }
    FoundRecords scan(ScanCache&) const override {
        std::this_thread::sleep_for(m_takes);
        if (m_failure) throw std::runtime_error(m_failure);
        return m_records;
    }

  private:
    Provider m_provider;
    std::vector<UsageRecord> m_records;
    const char* m_failure;
    std::chrono::milliseconds m_takes;
};

class LocalScan : public testing::TempHome {};

TEST_F(LocalScan, AFailingSourceIsOneProblemAndTheOthersStillCount) {
    FixedSource claude(Provider::claudeCode, {rec(Provider::claudeCode, "a", 100)});
    FixedSource codex(Provider::codexCLI, {}, "boom");
    FixedSource copilot(Provider::copilot, {rec(Provider::copilot, "b", 300)});
    UsageLedger ledger(Pricing::builtIn());
    ledger.problems = {"API OpenAI \u2014 from an earlier refresh"};
    ledger.scanLocal({&claude, &codex, &copilot});
    EXPECT_EQ(ledger.problems, std::vector<std::string>{"OpenAI Codex CLI: boom"});
    ASSERT_EQ(ledger.records.size(), 2u);
    EXPECT_EQ(ledger.records[0].provider, Provider::copilot);  // newest first
    ASSERT_TRUE(ledger.lastScan);
    EXPECT_NEAR(ledger.lastScan->secondsSince1970, Date::now().secondsSince1970, 60);
}

TEST_F(LocalScan, TheAppLedgerSupersedesEveryLogRecordOfItsSessions) {
    AppLedger::append(rec(Provider::claudeCode, "shared", 50));
    FixedSource claude(Provider::claudeCode, {rec(Provider::claudeCode, "shared", 60),
                                              rec(Provider::claudeCode, "", 70)});
    FixedSource gemini(Provider::geminiCLI, {rec(Provider::geminiCLI, "shared", 80)});
    UsageLedger ledger(Pricing::builtIn());
    ledger.scanLocal({&claude, &gemini});
    ASSERT_EQ(ledger.records.size(), 2u);
    EXPECT_FALSE(ledger.records[0].session);  // records without a session are never hidden
    EXPECT_EQ(ledger.records[1].date.secondsSince1970, 50);
}

TEST_F(LocalScan, EqualDatesKeepSourceOrderThenTheAppLedger) {
    AppLedger::append(rec(Provider::claudeCode, "own", 10));
    // Sources scan side by side, and whichever finishes first, records and problems come
    // in source order.
    const auto slowly = std::chrono::milliseconds(50);
    FixedSource first(Provider::claudeCode, {rec(Provider::claudeCode, "x", 10)}, nullptr, slowly);
    FixedSource second(Provider::grokCLI, {rec(Provider::grokCLI, "y", 10)});
    FixedSource third(Provider::geminiCLI, {}, "late", slowly);
    FixedSource fourth(Provider::copilot, {}, "early");
    UsageLedger ledger(Pricing::builtIn());
    ledger.scanLocal({&first, &second, &third, &fourth});
    ASSERT_EQ(ledger.records.size(), 3u);
    EXPECT_EQ(ledger.records[0].session, "x");
    EXPECT_EQ(ledger.records[1].session, "y");
    EXPECT_EQ(ledger.records[2].session, "own");
    EXPECT_EQ(ledger.problems,
              (std::vector<std::string>{"Gemini CLI: late", "GitHub Copilot: early"}));
}

TEST_F(LocalScan, LogsReadBackFromTheCacheGiveWhatParsingThemGave) {
    // Two sessions' replies within one second: parsed, the later fraction would sort first;
    // the cache keeps whole seconds. Both scans must agree, record for record and in order.
    auto reply = [](const char* session, int input, const char* time) {
        return std::string(R"({"type":"assistant","cwd":"/p","sessionId":")") + session +
               R"(","uuid":"u-)" + session +
               R"(","message":{"model":"claude-sonnet-4-6","usage":{"input_tokens":)" +
               std::to_string(input) + R"(}},"timestamp":")" + time + "\"}\n";
    };
    for (int i = 0; i < 8; ++i) {
        const std::string session = "s" + std::to_string(i);
        write(".claude/projects/p/" + session + ".jsonl",
              reply(session.c_str(), i + 1,
                    i % 2 ? "2026-03-02T10:00:00.900Z" : "2026-03-02T10:00:00.100Z"));
    }
    UsageLedger parsed(Pricing::builtIn()), cached(Pricing::builtIn());
    parsed.scanLocal();
    cached.scanLocal();
    ASSERT_EQ(parsed.records.size(), 8u);
    EXPECT_EQ(cached.records, parsed.records);
}

TEST_F(LocalScan, CacheEntriesOfVanishedLogsArePruned) {
    fs::path kept = write(".claude/projects/p/kept.jsonl", "{}\n");
    fs::path gone = write(".claude/projects/p/gone.jsonl", "{}\n");
    UsageLedger ledger(Pricing::builtIn());
    ledger.scanLocal();
    EXPECT_EQ(ScanCache::load().files.size(), 2u);
    fs::remove(gone);
    ledger.scanLocal();
    ScanCache cache = ScanCache::load();
    ASSERT_EQ(cache.files.size(), 1u);
    EXPECT_EQ(cache.files.begin()->first, kept.string());
}

TEST_F(LocalScan, OddDatesAndNamesLeaveACacheThatReadsBackAndIsNotRewritten) {
    // Dates just beyond what four-digit years hold once in UTC, a Grok time in the year
    // 17814, and a log whose name is not UTF-8, beside one ordinary request.
    auto reply = [](const char* id, const char* time) {
        return std::string(R"({"requestId":")") + id +
               R"(","message":{"usage":{"input_tokens":5}},"timestamp":")" + time + "\"}\n";
    };
    write(".claude/projects/p/late\xff.jsonl", reply("a", "9999-12-31T23:59:59-01:00") +
                                                   reply("b", "0000-01-01T00:00:00+01:00") +
                                                   reply("c", "2026-03-02T10:00:00Z"));
    write(
        ".grok/sessions/p/s/updates.jsonl",
        R"({"timestamp":5e11,"params":{"update":{"sessionUpdate":"turn_completed","usage":{"modelUsage":{"grok-4":{"inputTokens":9}}}}}})"
        "\n");
    UsageLedger ledger(Pricing::builtIn());
    ledger.scanLocal();
    ASSERT_EQ(ledger.records.size(), 1u);
    ScanCache::waitForSave();
    EXPECT_EQ(ScanCache::load().files.size(), 2u);
    const auto written = ScanCache::identity(ScanCache::file());
    fs::remove(ScanCache::imageFile());  // the JSON file alone must name the log
    ledger.scanLocal();
    ScanCache::waitForSave();
    EXPECT_EQ(ScanCache::identity(ScanCache::file()), written);
}

}  // namespace
}  // namespace usagekit
