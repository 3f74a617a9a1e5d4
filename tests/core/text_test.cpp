#include "core/text.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

TEST(Text, PrefixesCountCharactersNotBytes) {
    EXPECT_EQ(Text::firstCharacters("a\u2014b\u2014c", 3), "a\u2014b");
    EXPECT_EQ(Text::firstCharacters("abc", 10), "abc");
    EXPECT_EQ(Text::characterCount("\u2022\u2022x"), 3u);
}

TEST(Text, PercentEncodingRoundTripsAndRejectsBrokenEscapes) {
    EXPECT_EQ(Text::percentEncode("/tmp/my db?#%.db", Text::kURLPathExtra),
              "/tmp/my%20db%3F%23%25.db");
    EXPECT_EQ(Text::percentDecode("my%20project"), "my project");
    EXPECT_FALSE(Text::percentDecode("bad%2"));
    EXPECT_FALSE(Text::percentDecode("bad%zz"));
    EXPECT_FALSE(Text::percentDecode("%ff"));
    EXPECT_EQ(Text::trimmed("  x y\n\t"), "x y");
}

}  // namespace
}  // namespace usagekit
