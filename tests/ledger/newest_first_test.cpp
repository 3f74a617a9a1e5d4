#include "core/found_records.h"
#include "core/scan_cache.h"
#include "ledger/usage_ledger.h"
#include "support/records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace usagekit {
namespace {

// `count` records over a few dates, so that most dates are shared, each told apart by its
// input and carrying every field an image keeps.
std::vector<UsageRecord> recordsOf(int file, int count) {
    std::vector<UsageRecord> records;
    for (int k = 0; k < count; ++k) {
        const int n = file * 100 + k;
        UsageRecord r = testing::record(Provider::claudeCode, "model-" + std::to_string(n % 3), n,
                                        Date{1'780'000'000.0 + (n * 7919 % 40) * 3600});
        r.id = "key-" + std::to_string(n);
        r.project = "/home/ana/src/project-" + std::to_string(file % 5);
        if (n % 4) r.session = "session-" + std::to_string(file);
        if (n % 6 == 0) r.reportedCostUSD = n / 8.0;
        records.push_back(r);
    }
    return records;
}

// The cache as a scan reads it back from its image: every entry's records still packed.
ScanCache packedCache(const std::vector<std::vector<UsageRecord>>& files) {
    const ScanCache::FileIdentity json{1, 2, 3, 4, 5};
    ScanCache written;
    for (size_t i = 0; i < files.size(); ++i)
        written.files["/logs/" + std::to_string(i)] = {10, 20, files[i]};
    std::optional<std::string> image = written.image(json);
    if (!image) throw std::logic_error("records an image cannot hold");
    return *ScanCache::fromImage(std::move(*image), json);
}

std::vector<UsageRecord> joinedNewestFirst(const std::vector<std::vector<UsageRecord>>& parts) {
    std::vector<UsageRecord> joined;
    for (const std::vector<UsageRecord>& part : parts)
        joined.insert(joined.end(), part.begin(), part.end());
    std::stable_sort(joined.begin(), joined.end(), [](const UsageRecord& a, const UsageRecord& b) {
        return a.date.secondsSince1970 > b.date.secondsSince1970;
    });
    return joined;
}

TEST(NewestFirst, PackedAndParsedRecordsTakeTheirPlacesAndTiesKeepTheirOrder) {
    // Enough records that both cores fill the slots.
    std::vector<std::vector<UsageRecord>> files;
    for (int file = 0; file < 60; ++file)
        files.push_back(recordsOf(file, file % 7 == 0 ? 0 : 40 + file % 9));
    std::optional<ScanCache> cache = packedCache(files);

    // A source's files in walk order, some parsed this scan and some unchanged, then a
    // second source that parsed everything.
    std::vector<UsageRecord> firstInOrder, secondInOrder;
    for (size_t i = 0; i < 50; ++i) {
        const std::vector<UsageRecord>& file = files[(i * 17) % 50];
        firstInOrder.insert(firstInOrder.end(), file.begin(), file.end());
    }
    for (size_t file = 50; file < files.size(); ++file)
        secondInOrder.insert(secondInOrder.end(), files[file].begin(), files[file].end());
    auto found = [&] {
        FoundRecords first, second;
        for (size_t i = 0; i < 50; ++i) {
            const size_t file = (i * 17) % 50;
            if (file % 4 == 0)
                first.add(files[file]);
            else
                first.add(cache->files.at("/logs/" + std::to_string(file)), *cache);
        }
        second.add(secondInOrder);
        std::vector<FoundRecords> parts;
        parts.push_back(std::move(first));
        parts.push_back(std::move(second));
        return parts;
    };
    // Once without room made ahead, once with just enough, and with too little or too much.
    std::vector<std::vector<FoundRecords>> scans;
    for (int i = 0; i < 4; ++i)
        scans.push_back(found());
    const size_t count = firstInOrder.size() + secondInOrder.size();
    ASSERT_GT(count, 2000u);
    cache.reset();  // what was found holds the image its packed records lie in

    const std::vector<UsageRecord> expected = joinedNewestFirst({firstInOrder, secondInOrder});
    EXPECT_EQ(newestFirst(std::move(scans[0])), expected);
    EXPECT_EQ(newestFirst(std::move(scans[1]), std::vector<UsageRecord>(count)), expected);
    EXPECT_EQ(newestFirst(std::move(scans[2]), std::vector<UsageRecord>(count - 1)), expected);
    EXPECT_EQ(newestFirst(std::move(scans[3]), std::vector<UsageRecord>(count + 1)), expected);
}

TEST(NewestFirst, LeavingRecordsOutUnpacksTheRestInOrder) {
    const std::vector<std::vector<UsageRecord>> files = {recordsOf(1, 6), recordsOf(2, 5)};
    ScanCache cache = packedCache(files);
    FoundRecords found;
    found.add(cache.files.at("/logs/0"), cache);
    found.add(files[1]);
    const auto leaveOut = [](const UsageRecord& r) { return r.session == "session-1"; };
    found.eraseIf(leaveOut);

    std::vector<UsageRecord> expected = files[0];
    expected.insert(expected.end(), files[1].begin(), files[1].end());
    ASSERT_EQ(std::erase_if(expected, leaveOut), 4u);
    EXPECT_EQ(std::move(found).all(), expected);
}

}  // namespace
}  // namespace usagekit
