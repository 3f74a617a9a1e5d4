#include "core/line_reader.h"
#include "core/scan.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

class LineReader : public testing::TempHome {
  protected:
    std::vector<std::string> linesOf(const std::filesystem::path& path) {
        std::vector<std::string> lines;
        EXPECT_TRUE(
            Scan::forEachLineInFile(path, [&](std::string_view l) { lines.emplace_back(l); }));
        return lines;
    }
};

TEST_F(LineReader, SkipsEmptyLinesAndKeepsAnUnterminatedLastLine) {
    auto path = write("a.jsonl", "\none\n\ntwo\r\nthree");
    EXPECT_EQ(linesOf(path), (std::vector<std::string>{"one", "two\r", "three"}));
}

TEST_F(LineReader, LinesLongerThanTheBufferAndAcrossChunksArriveWhole) {
    std::string big(3 << 20, 'x');
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += "line " + std::to_string(i) + " " + std::string(500, 'y') + "\n";
    text += big + "\nafter\n";
    auto path = write("b.jsonl", text);
    auto lines = linesOf(path);
    ASSERT_EQ(lines.size(), 3002u);
    EXPECT_EQ(lines[2999].substr(0, 10), "line 2999 ");
    EXPECT_EQ(lines[3000], big);
    EXPECT_EQ(lines[3001], "after");
    // The same lines as splitting the whole text.
    std::vector<std::string> split;
    Scan::forEachLine(text, [&](std::string_view l) { split.emplace_back(l); });
    EXPECT_EQ(split, lines);
}

TEST_F(LineReader, AMissingFileReportsFalse) {
    EXPECT_FALSE(Scan::forEachLineInFile(home / "missing", [](std::string_view) {}));
}

}  // namespace
}  // namespace usagekit
