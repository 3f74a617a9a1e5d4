#include "ledger/fmt.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <clocale>

namespace usagekit {
namespace {

TEST(Fmt, TokenThresholdsAreDecidedOnTheIntegerBeforeRounding) {
    EXPECT_EQ(Fmt::tokens(999), "999");
    EXPECT_EQ(Fmt::tokens(1000), "1.0k");
    EXPECT_EQ(Fmt::tokens(999999), "1000.0k");
    EXPECT_EQ(Fmt::tokens(1000000), "1.0M");
    EXPECT_EQ(Fmt::tokens(12'345'678), "12.3M");
    EXPECT_EQ(Fmt::tokens(1000000000), "1.00B");
    EXPECT_EQ(Fmt::tokens(-5000), "-5000");
}

TEST(Fmt, MoneyIsGroupedTheUSWayWhateverTheLocale) {
    testing::ScopedEnv lang("LC_ALL", "de_DE.UTF-8");
    std::setlocale(LC_ALL, "");
    EXPECT_EQ(Fmt::cents(1234.5), "$1,234.50");
    EXPECT_EQ(Fmt::cents(0.07), "$0.07");
    EXPECT_EQ(Fmt::cents(12345.67), "$12,345.67");
    EXPECT_EQ(Fmt::cents(1234567.891), "$1,234,567.89");
    EXPECT_EQ(Fmt::cents(-1.5), "$-1.50");
    EXPECT_EQ(Fmt::cents(0), "$0.00");
    EXPECT_EQ(Fmt::dollars(1234.6), "$1,235");
    EXPECT_EQ(Fmt::dollars(999.4), "$999");
    std::setlocale(LC_ALL, "C");
}

TEST(Fmt, CentsRoundHalfToEvenOnTheShortestDecimal) {
    // 0.125 is a tie; 0.135 is 0.13500000000000000888 in binary but prints as 0.135.
    EXPECT_EQ(Fmt::cents(0.125), "$0.12");
    EXPECT_EQ(Fmt::cents(0.135), "$0.14");
    EXPECT_EQ(Fmt::cents(0.999), "$1.00");
    EXPECT_EQ(Fmt::cents(999.995), "$1,000.00");
    EXPECT_EQ(Fmt::cents(-0.001), "$0.00");
}

TEST(Fmt, AgoSaysJustNowWithinAMinuteEitherWay) {
    Date now{1'800'000'000};
    EXPECT_EQ(Fmt::ago(now.addingSeconds(59), now), "just now");
    EXPECT_EQ(Fmt::ago(now.addingSeconds(-59.9), now), "just now");
    EXPECT_EQ(Fmt::ago(now.addingSeconds(-300), now), "5 min. ago");
    EXPECT_EQ(Fmt::ago(now.addingSeconds(300), now), "in 5 min.");
    EXPECT_EQ(Fmt::ago(now.addingSeconds(-3 * 3600 - 5), now), "3 hr. ago");
    EXPECT_EQ(Fmt::ago(now.addingSeconds(-86400), now), "1 day ago");
    EXPECT_EQ(Fmt::ago(now.addingSeconds(-2 * 86400), now), "2 days ago");
}

}  // namespace
}  // namespace usagekit
