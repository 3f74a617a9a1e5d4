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

constexpr int64_t kThrows = INT64_MIN;  // integer() must raise OutOfRange

TEST(JSON, LenientAccessorsReadNumericStringsButNotBlanksAndRejectWhatDoesNotFit) {
    const struct {
        const char* value;
        std::optional<double> number;
        int64_t integer;
        bool boolean;
    } cases[] = {
        {R"("12.5")", 12.5, 12, true},
        {R"(" 12")", std::nullopt, 0, false},
        {R"("12 ")", std::nullopt, 0, false},
        {R"("")", std::nullopt, 0, false},
        {R"("1e3")", 1000.0, 1000, true},
        {R"("+4")", 4.0, 4, true},
        {"true", 1.0, 1, true},
        {"-7.9", -7.9, -7, true},  // truncated toward zero
        {"7.9", 7.9, 7, true},
        {"1e300", 1e300, kThrows, true},
        {R"("1e19")", 1e19, kThrows, true},
        // 2^63 - 1 becomes the double 2^63 on the way through number(), which no longer fits.
        {"9223372036854775807", 9223372036854775807.0, kThrows, true},
        {"0", 0.0, 0, false},
        {R"("0")", 0.0, 0, false},
        {R"("2")", 2.0, 2, true},
        {R"("abc")", std::nullopt, 0, false},
        {R"("true")", std::nullopt, 0, false},
        {"null", std::nullopt, 0, false},
    };
    JSONParser parser;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        JSON v = parsed(parser, std::string(R"({"v":)") + c.value + "}")["v"];
        EXPECT_EQ(v.number(), c.number);
        if (c.integer == kThrows)
            EXPECT_THROW(v.integer(), OutOfRange);
        else
            EXPECT_EQ(v.integer(), c.integer);
        EXPECT_EQ(v.boolean(), c.boolean);
    }
    JSON missing = parsed(parser, "{}")["v"];
    EXPECT_EQ(std::make_tuple(missing.number(), missing.integer(), missing.boolean()),
              std::make_tuple(std::optional<double>(), int64_t{0}, false));
}

TEST(JSON, NanAndInfinitySpelledOutAreNoNumbers) {
    JSONParser parser;
    for (const char* text : {R"("nan")", R"("-nan")", R"("inf")", R"("+infinity")", R"("NaN")"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(parsed(parser, text).number());
    }
}

TEST(JsonWriter, WholeNumbersBeyond64BitsAreWrittenSoTheyReadBack) {
    JSONParser parser;
    for (double number : {1.2345678901234568e20, -1.2345678901234567e19, 9223372036854775808.0}) {
        std::string text;
        writeJSONNumber(text, number);
        SCOPED_TRACE(text);
        EXPECT_EQ(parsed(parser, text).number(), number);
    }
}

TEST(JSON, KindsAndSubscripts) {
    JSONParser parser;
    JSON j = parsed(parser, R"({"a":[1,"two",null,{"k":false}],"o":{}})");
    EXPECT_EQ(j.kind(), JSON::Kind::Object);
    EXPECT_EQ(j["a"].kind(), JSON::Kind::Array);
    EXPECT_EQ(j["a"][0].kind(), JSON::Kind::Number);
    EXPECT_FALSE(j["a"][0].string());  // strings are never made from numbers
    EXPECT_EQ(j["a"][1].string(), "two");
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
    const std::pair<const char*, const char*> cases[] = {
        {R"({"inner":{"model":"deep"},"model":"own"})", "own"},
        {R"({"a":{"b":{"model":"first"}},"c":[{"model":"second"}]})", "first"},
        {R"([{"x":1},{"y":{"model":"in array"}}])", "in array"},
    };
    for (const auto& [text, model] : cases)
        EXPECT_EQ(parsed(parser, text).find("model").string(), model) << text;
    EXPECT_FALSE(parsed(parser, "[{}]").find("nothing").exists());
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
    EXPECT_EQ(pretty.text(), R"({
  "a" : "x/y",
  "m" : {
    "b" : [],
    "k" : null
  },
  "z" : [
    1,
    2.5,
    {}
  ]
})");
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
