// The slack the line reader promises after every line, read byte by byte in the callback,
// so that the address sanitizer stops any line that lacks it.
#include "core/line_reader.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using LineReaderSlack = testing::TempHome;

TEST_F(LineReaderSlack, LinesEndingNearTheEndOfTheBufferAreFollowedByTheSlack) {
    // Short lines over several megabytes: each full buffer's last line ends within a few
    // bytes of its end; one long line makes the buffer grow.
    std::string text;
    for (int i = 0; text.size() < (3u << 20); ++i)
        text += std::string(1 + i % 37, 'x') + "\n";
    text += std::string(3u << 20, 'x') + "\nx";
    const auto path = write("lines.jsonl", text);

    size_t lines = 0;
    unsigned sum = 0;
    auto read = [&](std::string_view line) {
        ++lines;
        for (size_t i = 0; i < Scan::kLineSlack; ++i)
            sum += static_cast<unsigned char>(line.data()[line.size() + i]);
    };
    ASSERT_TRUE(Scan::forEachLineInFile(path, read));
    const size_t all = lines;
    lines = 0;
    ASSERT_TRUE(Scan::forEachLineContaining(path, "x", read));
    EXPECT_EQ(lines, all);
    EXPECT_GT(sum, 0u);  // the bytes were read, not optimised away
}

}  // namespace
}  // namespace usagekit
