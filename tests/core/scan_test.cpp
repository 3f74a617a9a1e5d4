#include "core/scan.h"
#include "core/scan_cache.h"

#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace usagekit {
namespace fs = std::filesystem;
namespace {

UsageRecord logged(const std::string& iso, int64_t input = 10) {
    UsageRecord r =
        testing::record(Provider::claudeCode, "claude-sonnet-4-6", input, testing::at(iso));
    r.project = "/w/app";
    r.session = "s1";
    r.output = 1;
    return r;
}

TEST(Fold, KeyHoldsTheDayStartAsADoubleText) {
    testing::ScopedTimeZone utc("UTC0");
    EXPECT_EQ(Scan::foldKey(logged("2025-03-01T10:00:00Z")),
              "claude-code|claude-sonnet-4-6|1740787200.0|/w/app|s1");
    UsageRecord bare = logged("2025-03-01T10:00:00Z");
    bare.project.reset();
    bare.session.reset();
    EXPECT_EQ(Scan::foldKey(bare), "claude-code|claude-sonnet-4-6|1740787200.0||");
}

TEST(Fold, SameDayRecordsBecomeOneDatedAtTheLatest) {
    testing::ScopedTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    auto folded =
        Scan::fold({logged("2026-06-01T15:00:00Z", 5), logged("2026-06-01T07:00:00Z", 7)});
    ASSERT_EQ(folded.size(), 1u);
    EXPECT_EQ(folded[0].input, 12);
    EXPECT_EQ(folded[0].calls, 2);
    EXPECT_EQ(ISO8601::format(folded[0].date), "2026-06-01T15:00:00Z");
    EXPECT_TRUE(folded[0].id.ends_with("|s1"));
}

TEST(Fold, LocalMidnightSplitsDaysInTheUsersZone) {
    // 22:59Z and 23:01Z on the same UTC day straddle midnight in Berlin (UTC+1).
    testing::ScopedTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    auto folded = Scan::fold({logged("2026-01-10T22:59:00Z"), logged("2026-01-10T23:01:00Z")});
    EXPECT_EQ(folded.size(), 2u);
    // ...while 23:01Z and 23:30Z share the local day of 11 January.
    EXPECT_EQ(Scan::fold({logged("2026-01-10T23:01:00Z"), logged("2026-01-10T23:30:00Z")}).size(),
              1u);
}

TEST(Fold, KeysThatComeBackFindTheirFoldWhateverCameBetween) {
    // Days, projects and sessions switching back and forth, longer and shorter keys in
    // turn: each record lands in the fold of its own key, the folds in order of first
    // appearance, each named by its key.
    testing::ScopedTimeZone utc("UTC0");
    UsageRecord longer = logged("2025-03-02T10:00:00Z");
    longer.project = "/w/a-much-longer-project-name";
    UsageRecord bare = logged("2025-03-01T11:00:00Z");
    bare.project.reset();
    bare.session.reset();
    Scan::Folder folder;
    for (const UsageRecord& r : {logged("2025-03-01T09:00:00Z"), longer, bare,
                                 logged("2025-03-01T10:00:00Z"), longer, bare, longer})
        folder.add(r);
    std::vector<std::pair<std::string, int64_t>> folds;
    for (const UsageRecord& r : folder.take())
        folds.emplace_back(r.id, r.calls);
    EXPECT_EQ(
        folds,
        (std::vector<std::pair<std::string, int64_t>>{
            {"claude-code|claude-sonnet-4-6|1740787200.0|/w/app|s1", 2},
            {"claude-code|claude-sonnet-4-6|1740873600.0|/w/a-much-longer-project-name|s1", 3},
            {"claude-code|claude-sonnet-4-6|1740787200.0||", 2}}));
}

TEST(Fold, ReportedCostsSumAndStayAbsentWhenNoneIsReported) {
    UsageRecord a = logged("2026-01-10T10:00:00Z"), b = logged("2026-01-10T11:00:00Z");
    a.reportedCostUSD = 0.10;
    EXPECT_EQ(Scan::fold({a, b})[0].reportedCostUSD, 0.10);
    EXPECT_EQ(Scan::fold({b, a})[0].reportedCostUSD, 0.10);
    EXPECT_FALSE(Scan::fold({b, b})[0].reportedCostUSD);
}

TEST(Fold, AnOverflowingRecordIsDroppedNotWrapped) {
    UsageRecord big = logged("2026-01-10T10:00:00Z", INT64_MAX - 5);
    auto folded = Scan::fold({big, logged("2026-01-10T11:00:00Z", 100)});
    ASSERT_EQ(folded.size(), 1u);
    EXPECT_EQ(folded[0].input, INT64_MAX - 5);
    EXPECT_EQ(folded[0].calls, 1);
}

TEST(Fold, ACostThatWouldMakeTheSumInfiniteIsDroppedWithItsRecord) {
    UsageRecord a = logged("2026-01-10T10:00:00Z"), b = logged("2026-01-10T11:00:00Z");
    a.reportedCostUSD = b.reportedCostUSD = 1.7e308;
    auto folded = Scan::fold({a, b});
    ASSERT_EQ(folded.size(), 1u);
    EXPECT_EQ(folded[0].reportedCostUSD, 1.7e308);
    EXPECT_EQ(folded[0].calls, 1);
}

TEST(Finish, DropsRecordsWithoutTokensBeforeFolding) {
    UsageRecord empty = logged("2026-01-10T10:00:00Z", 0);
    empty.output = 0;
    empty.reasoning = 50;
    EXPECT_TRUE(Scan::finish({empty}).empty());
}

TEST(ScanDate, ReadsBothFormsOnly) {
    EXPECT_TRUE(Scan::date("2026-03-01T12:34:56.789Z"));
    EXPECT_TRUE(Scan::date("2026-03-01T12:34:56Z"));
    EXPECT_FALSE(Scan::date("2026-03-01 12:34:56"));
}

class ScanFiles : public testing::TempHome {};

TEST_F(ScanFiles, FindsBySuffixAndSkipsHiddenEntries) {
    write("p/a.jsonl", "");
    write("p/deep/er/b.jsonl", "");
    write("p/notes.jsonl.bak", "");
    write("p/.hidden.jsonl", "");
    write("p/.git/c.jsonl", "");
    write("p/odd.jsonl/d.txt", "");  // a directory with the suffix is listed, like a file
    write("elsewhere/e.jsonl", "");
    fs::create_directory_symlink(home / "elsewhere", home / "p" / "link");  // never followed
    auto found = Scan::files(home / "p/", ".jsonl");
    std::vector<std::string> names;
    for (auto& f : found)
        names.push_back(f.substr(home.string().size()));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names,
              (std::vector<std::string>{"/p/a.jsonl", "/p/deep/er/b.jsonl", "/p/odd.jsonl"}));
    EXPECT_TRUE(Scan::files(home / "missing", ".jsonl").empty());
}

TEST_F(ScanFiles, SeveralEndingsComeOutAsOneWalkPerEndingListsThem) {
    // Interleaved in the tree, grouped by ending in the result; a name with both endings
    // is in both groups.
    write("t/a.json", "");
    write("t/b.jsonl", "");
    write("t/x/c.json", "");
    write("t/x/d.jsonl", "");
    write("t/x/y/logs.json", "");
    const fs::path t = home / "t";
    std::vector<std::string> separately = Scan::files(t, ".jsonl");
    for (std::string_view ending : {".json", "s.json"})
        for (std::string& file : Scan::files(t, ending))
            separately.push_back(std::move(file));
    EXPECT_EQ(Scan::files(t, {".jsonl", ".json", "s.json"}), separately);
    EXPECT_EQ(separately.size(), 6u);
    EXPECT_TRUE(Scan::files(home / "missing", {".jsonl", ".json"}).empty());
}

class ScanCacheTest : public testing::TempHome {
  protected:
    int parses = 0;
    ScanCache::Parse counting() {
        return [this](const fs::path&) {
            ++parses;
            return std::vector<UsageRecord>{logged("2026-01-10T10:00:00Z")};
        };
    }
};

TEST_F(ScanCacheTest, ALogIsReadAgainWhenItsTimeMovesHalfASecondOrItsSizeChanges) {
    fs::path log = write("log.jsonl", "line\n");
    ScanCache cache;
    const struct {
        double modified;
        const char* text;
        int parses;
    } steps[] = {{1'700'000'000.0, "line\n", 1},
                 {1'700'000'000.4, "line\n", 1},
                 {1'700'000'000.5, "line\n", 2},
                 {1'700'000'000.5, "line\nx", 3}};
    for (const auto& step : steps) {
        testing::writeText(log, step.text);
        testing::setModified(log, step.modified);
        cache.records(log, counting());
        EXPECT_EQ(parses, step.parses) << step.modified << " " << step.text;
    }
}

TEST_F(ScanCacheTest, TextFormPassesTheFileStemAsSession) {
    ScanCache cache;
    std::string seen;
    cache.recordsOfText(write("rollout-2026-a.jsonl", "hello"),
                        [&](std::string_view text, const std::string& session) {
                            seen = std::string(text) + " " + session;
                            return std::vector<UsageRecord>{};
                        });
    EXPECT_EQ(seen, "hello rollout-2026-a");
}

TEST_F(ScanCacheTest, SavedCacheLoadsBackAndOtherVersionsAreDiscarded) {
    fs::path log = write("log.jsonl", "line\n");
    ScanCache cache;
    cache.records(log, counting());
    cache.records(write("gone.jsonl", "x"), counting());
    cache.save();
    // The next scan asks only for the log still there; the other's entry goes.
    ScanCache next = ScanCache::load();
    next.records(log, counting());
    next.pruneUnvisited();
    next.save();
    ScanCache loaded = ScanCache::load();
    ASSERT_EQ(loaded.files.size(), 1u);
    EXPECT_EQ(loaded.files.begin()->first, log.string());
    EXPECT_EQ(loaded.files.begin()->second.recordCount(), 1u);
    EXPECT_EQ(loaded.version, 4);
    // Served from the loaded cache without parsing.
    loaded.records(log, counting());
    EXPECT_EQ(parses, 2);

    // Read in the background, the cache serves the same entries once it is asked.
    ScanCache background = ScanCache::loadInBackground();
    background.records(log, counting());
    EXPECT_EQ(parses, 2);
    background.settle();
    EXPECT_EQ(background.files, loaded.files);
    // It made a slot for each record it holds packed, once.
    EXPECT_EQ(background.takeSlots().size(), 1u);
    EXPECT_TRUE(background.takeSlots().empty());

    std::string text = testing::readText(ScanCache::file());
    text.replace(text.find("\"version\" : 4"), 13, "\"version\" : 3");
    testing::writeText(ScanCache::file(), text);
    EXPECT_TRUE(ScanCache::load().files.empty());
    testing::writeText(ScanCache::file(), "garbage");
    EXPECT_TRUE(ScanCache::load().files.empty());
}

TEST(Contains, FindsTheNeedleAtEveryOffsetAndNothingElse) {
    // Every position across the 32-byte steps and the tail, and near misses.
    for (size_t length : {7u, 31u, 32u, 38u, 39u, 70u, 200u}) {
        for (size_t at = 0; at + 7 <= length; ++at) {
            std::string text(length, '"');
            text.replace(at, 7, "\"usage\"");
            EXPECT_TRUE(Scan::contains(text, "\"usage\"")) << length << " " << at;
            text[at + 3] = 'X';
            EXPECT_FALSE(Scan::contains(text, "\"usage\"")) << length << " " << at;
        }
    }
    EXPECT_FALSE(Scan::contains("", "\"usage\""));
    EXPECT_FALSE(Scan::contains("\"usage", "\"usage\""));
    EXPECT_TRUE(Scan::contains("x", "x"));
}

}  // namespace
}  // namespace usagekit
