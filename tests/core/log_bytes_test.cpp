// Decoding compressed logs. archived_two_frames.jsonl.zst is two zstd frames, of 10 and 9
// lines, as `cat a.zst b.zst` makes; week_old_session.jsonl.zst holds the first 20 lines of
// resumed_session.jsonl.
#include "core/log_bytes.h"

#include "support/temp_home.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::fixture;
using testing::readText;

// Everything LogBytes hands out for a compressed file, read 4 KiB at a time.
std::string decoded(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0) << path;
    LogBytes bytes(fd, true);
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = bytes.read(buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(n));
    ::close(fd);
    return text;
}

// The first `lines` lines of `text`, newlines included.
std::string firstLines(const std::string& text, int lines) {
    size_t end = 0;
    for (int i = 0; i < lines; ++i)
        end = text.find('\n', end) + 1;
    return text.substr(0, end);
}

using CompressedLog = testing::TempHome;

TEST_F(CompressedLog, GivesTheTextItWasMadeFrom) {
    EXPECT_EQ(decoded(fixture("codex/week_old_session.jsonl.zst")),
              firstLines(readText(fixture("codex/resumed_session.jsonl")), 20));
}

TEST_F(CompressedLog, CutInItsSecondFrameGivesTheFirstFrame) {
    const std::string whole = readText(fixture("codex/archived_two_frames.jsonl.zst"));
    const std::string text = decoded(fixture("codex/archived_two_frames.jsonl.zst"));
    EXPECT_EQ(decoded(write("cut.jsonl.zst", whole.substr(0, whole.size() - 300))),
              firstLines(text, 10));
}

TEST_F(CompressedLog, DamagedInItsSecondFrameStillGivesTheFirstFrame) {
    std::string bytes = readText(fixture("codex/archived_two_frames.jsonl.zst"));
    const std::string text = decoded(fixture("codex/archived_two_frames.jsonl.zst"));
    for (size_t i = bytes.size() - 500; i < bytes.size() - 400; ++i)
        bytes[i] = static_cast<char>(bytes[i] ^ 0x5A);
    EXPECT_TRUE(decoded(write("damaged.jsonl.zst", bytes)).starts_with(firstLines(text, 10)));
}

TEST_F(CompressedLog, PlainTextNamedAsCompressedGivesNothing) {
    EXPECT_EQ(decoded(write("plain.jsonl.zst", "{\"type\":\"session_meta\"}\n")), "");
}

TEST(LogStem, CompressedAndPlainLogsShareTheirSessionName) {
    EXPECT_EQ(logStem("rollout-1.jsonl.zst"), "rollout-1");
    EXPECT_EQ(logStem("rollout-1.jsonl"), "rollout-1");
}

}  // namespace
}  // namespace usagekit
