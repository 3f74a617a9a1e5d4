// Compressed logs read through the line reader, as the log sources read them.
#include "core/line_reader.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

class CompressedLog : public testing::TempHome {
  protected:
    std::vector<std::string> linesOf(const std::filesystem::path& path) {
        std::vector<std::string> lines;
        EXPECT_TRUE(
            Scan::forEachLineInFile(path, [&](std::string_view l) { lines.emplace_back(l); }));
        return lines;
    }
};

// archived_two_frames.jsonl.zst is two zstd frames, of 10 and 9 lines, as `cat a.zst b.zst`
// makes; week_old_session.jsonl.zst holds the first 20 lines of resumed_session.jsonl.
TEST_F(CompressedLog, GivesTheLinesOfItsText) {
    std::vector<std::string> plain = linesOf(testing::fixture("codex/resumed_session.jsonl"));
    plain.resize(20);
    EXPECT_EQ(linesOf(testing::fixture("codex/week_old_session.jsonl.zst")), plain);
    EXPECT_EQ(linesOf(testing::fixture("codex/archived_two_frames.jsonl.zst")).size(), 19u);
}

TEST_F(CompressedLog, CutInItsSecondFrameKeepsTheFirstFramesLines) {
    const std::string whole =
        testing::readText(testing::fixture("codex/archived_two_frames.jsonl.zst"));
    const auto all = linesOf(testing::fixture("codex/archived_two_frames.jsonl.zst"));
    const auto path = write("cut.jsonl.zst", whole.substr(0, whole.size() - 300));
    EXPECT_EQ(linesOf(path), std::vector<std::string>(all.begin(), all.begin() + 10));
}

TEST_F(CompressedLog, DamagedKeepsTheLinesBeforeTheDamage) {
    std::string bytes = testing::readText(testing::fixture("codex/archived_two_frames.jsonl.zst"));
    const auto all = linesOf(testing::fixture("codex/archived_two_frames.jsonl.zst"));
    for (size_t i = bytes.size() - 500; i < bytes.size() - 400; ++i)
        bytes[i] = static_cast<char>(bytes[i] ^ 0x5A);
    const auto lines = linesOf(write("damaged.jsonl.zst", bytes));
    ASSERT_GE(lines.size(), 10u);
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 10),
              std::vector<std::string>(all.begin(), all.begin() + 10));
}

TEST_F(CompressedLog, PlainTextNamedAsCompressedGivesNoLines) {
    EXPECT_TRUE(linesOf(write("plain.jsonl.zst", "{\"type\":\"session_meta\"}\n")).empty());
}

}  // namespace
}  // namespace usagekit
