#include "sources/log_source.h"

#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace fs = std::filesystem;
namespace {

class RecordsOfFiles : public testing::TempHome {
  protected:
    // One record per file, named after it, so a test sees which files were parsed.
    std::vector<UsageRecord> read(ScanCache& cache, const std::vector<fs::path>& files) {
        const std::vector<std::string> paths(files.begin(), files.end());
        return recordsOfFiles(cache, paths,
                              [](const fs::path& file) {
                                  return std::vector<UsageRecord>{
                                      testing::record(Provider::claudeCode, file.string())};
                              })
            .all();
    }
};

TEST_F(RecordsOfFiles, FilesThatShareNoDirectoryAreStampedAndParsedInOrder) {
    // Stats are made relative to the directory the files share; here they share only the
    // root, or nothing at all (a relative path from a relative XDG_CONFIG_HOME).
    const fs::path log = write("a/b/log.jsonl", "12345");
    const std::vector<fs::path> files = {log, "/no-such-log.jsonl", "relative/none.jsonl"};
    ScanCache cache;
    const auto records = read(cache, files);
    ASSERT_EQ(records.size(), 3u);
    for (size_t i = 0; i < files.size(); ++i)
        EXPECT_EQ(records[i].model, files[i].string());
    EXPECT_EQ(cache.files.at(log.string()).size, 5);
    EXPECT_EQ(cache.files.at("relative/none.jsonl").size, 0);
}

TEST_F(RecordsOfFiles, UnchangedFilesComeFromTheCacheAndChangedOnesAreParsedAgain) {
    std::vector<fs::path> files;
    for (int i = 0; i < 1200; ++i)  // enough for the stats to run on several threads
        files.push_back(write("p/s" + std::to_string(i % 9) + "/" + std::to_string(i) + ".jsonl",
                              std::string(static_cast<size_t>(i % 5), 'x')));
    ScanCache cache;
    read(cache, files);
    for (int i = 0; i < 1200; i += 100) {
        cache.files.at(files[static_cast<size_t>(i)].string()).records.clear();
        testing::writeText(files[static_cast<size_t>(i)], "grown by a line\n");
    }
    cache.files.at(files[1].string()).records.clear();  // unchanged: stays as cached
    const auto records = read(cache, files);
    EXPECT_EQ(records.size(), 1199u);
    for (const UsageRecord& record : records)
        EXPECT_NE(record.model, files[1].string());
}

TEST_F(RecordsOfFiles, AFileThatRunsOutOfMemoryLosesOnlyItsOwnRecordsAndIsReadAgainNextTime) {
    std::vector<std::string> files;
    for (int i = 0; i < 8; ++i)
        files.push_back(write(std::to_string(i) + ".jsonl", "x").string());
    testing::ScopedEnv threads("TALLY_SCAN_THREADS", "4");
    ScanCache cache;
    const auto records =
        recordsOfFiles(cache, files, [&](const fs::path& file) {
            if (file == files[5]) throw std::bad_alloc();
            return std::vector<UsageRecord>{testing::record(Provider::claudeCode, file.string())};
        }).all();
    EXPECT_EQ(records.size(), 7u);
    EXPECT_FALSE(cache.files.contains(files[5]));
    EXPECT_TRUE(cache.files.contains(files[4]));
}

}  // namespace
}  // namespace usagekit
