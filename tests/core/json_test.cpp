#include "core/json.h"

#include <gtest/gtest.h>

#include <cmath>

namespace usagekit {
namespace {

JSON parsed(JSONParser& parser, std::string_view text) {
    auto json = parser.parse(text);
    EXPECT_TRUE(json.has_value()) << text;
    return json.value_or(JSON());
}

TEST(JSON, NumericStringsCountAsNumbersButLeadingBlanksDoNot) {
    JSONParser parser;
    JSON j =
        parsed(parser, R"({"a":"12.5","b":" 12","c":"","d":"1e3","e":"12 ","f":true,"g":"+4"})");
    EXPECT_EQ(j["a"].number(), 12.5);
    EXPECT_EQ(j["a"].integer(), 12);
    EXPECT_FALSE(j["b"].number());
    EXPECT_EQ(j["b"].integer(), 0);
    EXPECT_FALSE(j["c"].number());
    EXPECT_EQ(j["d"].number(), 1000.0);
    EXPECT_FALSE(j["e"].number());
    EXPECT_EQ(j["f"].number(), 1.0);
    EXPECT_EQ(j["g"].number(), 4.0);
    EXPECT_FALSE(j["missing"].number());
    EXPECT_EQ(j["missing"].integer(), 0);
}

TEST(JSON, IntegerTruncatesTowardZeroAndRejectsWhatDoesNotFit) {
    JSONParser parser;
    JSON j = parsed(
        parser, R"({"neg":-7.9,"pos":7.9,"huge":1e300,"big":"1e19","edge":9223372036854775807})");
    EXPECT_EQ(j["neg"].integer(), -7);
    EXPECT_EQ(j["pos"].integer(), 7);
    EXPECT_THROW(j["huge"].integer(), OutOfRange);
    EXPECT_THROW(j["big"].integer(), OutOfRange);
    // 2^63 - 1 becomes the double 2^63 on the way through number(), which no longer fits.
    EXPECT_THROW(j["edge"].integer(), OutOfRange);
}

TEST(JSON, BooleanAcceptsNonZeroNumbersOnly) {
    JSONParser parser;
    JSON j = parsed(
        parser,
        R"({"t":true,"one":1,"zero":0,"s0":"0","s2":"2","abc":"abc","yes":"true","n":null})");
    EXPECT_TRUE(j["t"].boolean());
    EXPECT_TRUE(j["one"].boolean());
    EXPECT_FALSE(j["zero"].boolean());
    EXPECT_FALSE(j["s0"].boolean());
    EXPECT_TRUE(j["s2"].boolean());
    EXPECT_FALSE(j["abc"].boolean());
    EXPECT_FALSE(j["yes"].boolean());
    EXPECT_FALSE(j["n"].boolean());
    EXPECT_FALSE(j["missing"].boolean());
}

TEST(JSON, StringsAreNeverMadeFromNumbers) {
    JSONParser parser;
    JSON j = parsed(parser, R"({"n":5,"s":"x"})");
    EXPECT_FALSE(j["n"].string());
    EXPECT_EQ(j["s"].string(), "x");
}

TEST(JSON, KindsAndSubscripts) {
    JSONParser parser;
    JSON j = parsed(parser, R"({"a":[1,"two",null,{"k":false}],"o":{}})");
    EXPECT_EQ(j.kind(), JSON::Kind::Object);
    EXPECT_EQ(j["a"].kind(), JSON::Kind::Array);
    EXPECT_EQ(j["a"][0].kind(), JSON::Kind::Number);
    EXPECT_EQ(j["a"][1].kind(), JSON::Kind::String);
    EXPECT_TRUE(j["a"][2].isNull());
    EXPECT_TRUE(j["a"][2].exists());
    EXPECT_FALSE(j["a"][2].hasValue());
    EXPECT_EQ(j["a"][3].kind(), JSON::Kind::Object);
    EXPECT_FALSE(j["a"][4].exists());
    EXPECT_FALSE(j["a"]["k"].exists());
    EXPECT_FALSE(j["o"][0].exists());
    EXPECT_EQ(j["a"].array().size(), 4u);
    EXPECT_TRUE(j["o"].array().empty());
    EXPECT_FALSE(j["missing"].kind());
}

TEST(JSON, FindPrefersTheObjectsOwnMemberThenSearchesDepthFirst) {
    JSONParser parser;
    JSON j = parsed(parser, R"({"inner":{"model":"deep"},"model":"own"})");
    EXPECT_EQ(j.find("model").string(), "own");
    JSON k = parsed(parser, R"({"a":{"b":{"model":"first"}},"c":[{"model":"second"}]})");
    EXPECT_EQ(k.find("model").string(), "first");
    JSON l = parsed(parser, R"([{"x":1},{"y":{"model":"in array"}}])");
    EXPECT_EQ(l.find("model").string(), "in array");
    EXPECT_FALSE(l.find("nothing").exists());
}

TEST(JSON, ParseFailsOnBrokenText) {
    JSONParser parser;
    EXPECT_FALSE(parser.parse("{\"a\":"));
    EXPECT_FALSE(parser.parse(""));
    EXPECT_FALSE(parser.parse(std::string_view("\xff\xfe{}", 4)));
    EXPECT_TRUE(parser.parse("3"));
    EXPECT_FALSE(JSONDocument::parse("nope"));
}

TEST(JsonWriter, PrettyOutputIsIndentedWithSortedKeysAndUnescapedSlashes) {
    JSONParser parser;
    JSON j = parsed(parser, R"({"z":[1,2.5,{}],"a":"x/y","m":{"k":null,"b":[]}})");
    JsonWriter pretty(true);
    j.write(pretty);
    EXPECT_EQ(pretty.text(),
              "{\n"
              "  \"a\" : \"x/y\",\n"
              "  \"m\" : {\n"
              "    \"b\" : [],\n"
              "    \"k\" : null\n"
              "  },\n"
              "  \"z\" : [\n"
              "    1,\n"
              "    2.5,\n"
              "    {}\n"
              "  ]\n"
              "}");
    JsonWriter compact(false);
    j.write(compact);
    EXPECT_EQ(compact.text(), R"({"a":"x/y","m":{"b":[],"k":null},"z":[1,2.5,{}]})");
}

TEST(JsonWriter, EscapesControlCharactersAndReplacesBrokenUTF8) {
    std::string out;
    writeJSONString(out, std::string("a\"b\\c\n\x01 \xE2\x80\x94 \xff", 13));
    EXPECT_EQ(out, "\"a\\\"b\\\\c\\n\\u0001 \xE2\x80\x94 \xEF\xBF\xBD\"");
    JSONParser parser;
    EXPECT_TRUE(parser.parse(out));
}

TEST(JsonWriter, NumbersRoundTripAndNonFiniteIsRefused) {
    JsonWriter w(false);
    w.beginArray();
    w.value(0.1);
    w.value(3.0);
    w.value(int64_t{-42});
    w.value(1e300);
    w.endArray();
    EXPECT_EQ(w.text(), "[0.1,3,-42,1e+300]");
    JsonWriter bad(false);
    EXPECT_THROW(bad.value(std::nan("")), std::invalid_argument);
}

}  // namespace
}  // namespace usagekit
