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

TEST_F(LineReader, OnlyLinesWithTheNeedleArriveAndTheyAreTheSameAsFiltering) {
    std::string text = "{\"usage\":1}\nplain\n\n";
    for (int i = 0; i < 5000; ++i)
        text += (i % 7 ? "no match here " : "a \"usage\" b ") + std::string(i % 600, 'z') + "\n";
    text += "last \"usage\" without newline";
    auto path = write("c.jsonl", text);
    std::vector<std::string> expected;
    Scan::forEachLine(text, [&](std::string_view l) {
        if (Scan::contains(l, "\"usage\"")) expected.emplace_back(l);
    });
    std::vector<std::string> got;
    EXPECT_TRUE(Scan::forEachLineContaining(path, "\"usage\"",
                                            [&](std::string_view l) { got.emplace_back(l); }));
    EXPECT_EQ(got, expected);
    EXPECT_EQ(got.size(), 1u + 715u + 1u);
}

TEST_F(LineReader, AMissingFileReportsFalse) {
    EXPECT_FALSE(Scan::forEachLineInFile(home / "missing", [](std::string_view) {}));
    EXPECT_FALSE(Scan::forEachLineContaining(home / "missing", "x", [](std::string_view) {}));
}

TEST_F(LineReader, ALineTooLongToKeepIsPassedOverAndTheLinesAfterItArrive) {
    const auto path =
        write("long.jsonl", "before \"usage\"\n" + std::string(Scan::kMaxLineBytes, 'x') +
                                "\"usage\"\nafter \"usage\"\n");
    EXPECT_EQ(linesOf(path), (std::vector<std::string>{"before \"usage\"", "after \"usage\""}));
    std::vector<std::string> holding;
    Scan::forEachLineContaining(path, "usage",
                                [&](std::string_view l) { holding.emplace_back(l); });
    EXPECT_EQ(holding, linesOf(path));
}

}  // namespace
}  // namespace usagekit
