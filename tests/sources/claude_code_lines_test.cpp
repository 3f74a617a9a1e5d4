// Claude Code's reader against the full-parse reference, on the fixtures and on generated
// lines: every shape a line may take, and every way it may be damaged.
#include "sources/claude_code.h"
#include "sources/claude_reference_parser.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <set>

namespace usagekit {
namespace {

using Records = std::vector<UsageRecord>;
namespace fs = std::filesystem;

Records onDemand(std::string_view text) {
    return ClaudeCodeSource::parse(text);
}
Records fullParse(std::string_view text) {
    return testing::ClaudeReferenceParser::parse(text);
}

::testing::AssertionResult same(const Records& read, const Records& reference) {
    if (read == reference) return ::testing::AssertionSuccess();
    auto failure = ::testing::AssertionFailure() << "\nread on demand:";
    for (const auto& line : testing::describe(read))
        failure << "\n  " << line;
    failure << "\nfull parse:";
    for (const auto& line : testing::describe(reference))
        failure << "\n  " << line;
    return failure;
}

// A generated line, and the byte ranges of the values in it the reader steps over unread
// (each with the blanks around it, up to its ',' or '}').
struct Line {
    std::string text;
    std::vector<std::pair<size_t, size_t>> unread;

    bool isUnread(size_t at) const {
        return std::any_of(unread.begin(), unread.end(),
                           [&](auto& range) { return at >= range.first && at < range.second; });
    }
};

// A value to write: JSON text as is, or an object of fields.
struct Field;
struct Value {
    Value() = default;
    Value(std::string json) : text(std::move(json)) {}
    std::string text;
    std::vector<Field> fields;
};
struct Field {
    std::string name;     // the key unescaped
    std::string written;  // the key as the line spells it
    Value value;
};

// Which keys of an object the reader reads, and the objects among them it reads into.
struct Reading {
    std::set<std::string> keys;
    std::string into;
    const Reading* inner = nullptr;
};
const Reading kUsageReading{
    {"input_tokens", "output_tokens", "cache_read_input_tokens", "cache_creation_input_tokens"},
    "",
    nullptr};
const Reading kMessageReading{{"usage", "model"}, "usage", &kUsageReading};
const Reading kRootReading{
    {"message", "requestId", "uuid", "timestamp", "cwd", "sessionId", "isSidechain"},
    "message",
    &kMessageReading};

// clang-format off
// Few keys, so that requests repeat across lines; "req\u005f1" is "req_1" escaped.
const std::vector<std::string> kIds = {R"("req_1")", R"("req_2")", R"("req_3")", R"("req\u005f1")", R"("")"};
const std::vector<std::string> kUuids = {R"("u1")", R"("u2")", R"("u\u0031")"};
const std::vector<std::string> kTimestamps = {
    R"("2026-03-02T10:15:04.221Z")", R"("2026-03-02T23:59:59Z")", R"("2026-03-03T00:00:00.5Z")",
    R"("2026-03-02 10:00:00")", R"("")", R"("2026-02-30T10:00:00Z")"};
const std::vector<std::string> kTexts = {R"("/home/ana/src/app")", R"("/w/caf\u00e9")", R"("s1")",
    R"("s\"2")", R"("claude-sonnet-4-6")", R"("claude-opus-4-6")", R"("<synthetic>")"};
// Every other type, where the reader expects one.
const std::vector<std::string> kOthers = {"7", "-0", "2.5", "true", "false", "null", "{}", "[]",
    R"({"a":[1,{"b":null}]})", R"([1,"x",{}])", R"("1")", R"("0")", R"("true")", "1e300",
    "123456789012345678901234567890"};
const std::vector<std::string> kCounts = {"0", "1", "3", "120", "2.9", "-3", "-0", R"("12")",
    R"("12.5")", R"(" 12")", R"("+7")", R"("-1")", R"("1e3")", R"("0x10")", R"("abc")", R"("")",
    R"("1\u0032")", "true", "false", "null", "[]", "{}", "[1]", R"({"n":1})", "1e300", "-1e300",
    "1e-400", "1E2", "0.5e1", "9223372036854775807", "9223372036854775808", "-9223372036854775808",
    "18446744073709551615", "18446744073709551616", "123456789012345678901234567890",
    "9007199254740993", R"("9223372036854775808")", R"("1e400")"};
const std::vector<std::string> kFlags = {"true", "false", "1", "0", R"("1")", R"("0")",
    R"("true")", "null", "2.5", "-0.0", R"("x")", "[]", "{}", R"("1e400")"};
// Values only ever stepped over: the reader must not care what they hold.
const std::vector<std::string> kUnread = {
    R"([{"type":"text","text":"usage \"quoted\" \\ \n caf\u00e9 \ud83d\ude00 {[,:"}])",
    R"([{"type":"tool_use","id":"toolu_1","name":"Read","input":{"file_path":"/a","n":[1,2.5e3,-0,true,null]}}])",
    R"([[[[{"a":[[],{}]}]]]])", R"({"ephemeral_5m_input_tokens":900,"ephemeral_1h_input_tokens":0})",
    R"("usage")", R"("standard")", "null", "[]", "12", "-1.5e-3", "false"};
const std::vector<std::string> kOtherKeys = {"parentUuid", "userType", "version", "type",
    "toolUseResult", "Usage", "requestid", "message ", ""};
// clang-format on

class LineGenerator {
  public:
    explicit LineGenerator(uint32_t seed) : m_random(seed) {}

    Line next() {
        Value root;
        if (chance(92)) add(root, "message", chance(90) ? message() : Value(pick(kOthers)));
        if (chance(75)) add(root, "requestId", {chance(85) ? pick(kIds) : pick(kOthers)});
        if (chance(60)) add(root, "uuid", {chance(85) ? pick(kUuids) : pick(kOthers)});
        if (chance(92)) add(root, "timestamp", {chance(90) ? pick(kTimestamps) : pick(kOthers)});
        if (chance(80)) add(root, "cwd", {chance(90) ? pick(kTexts) : pick(kOthers)});
        if (chance(80)) add(root, "sessionId", {chance(90) ? pick(kTexts) : pick(kOthers)});
        if (chance(80)) add(root, "isSidechain", {pick(kFlags)});
        for (size_t n = below(4); n > 0; --n)
            add(root, pick(kOtherKeys), {pick(kUnread)});
        finish(root, [&] { return chance(50) ? message() : Value(pick(kOthers)); });
        Line line;
        write(root, &kRootReading, false, line);
        return line;
    }

    size_t below(size_t n) { return m_random() % n; }
    bool chance(unsigned percent) { return below(100) < percent; }
    template <class T>
    const T& pick(const std::vector<T>& values) {
        return values[below(values.size())];
    }

  private:
    Value message() {
        Value message;
        if (chance(90)) add(message, "usage", chance(85) ? usage() : Value(pick(kOthers)));
        if (chance(85)) add(message, "model", {chance(90) ? pick(kTexts) : pick(kOthers)});
        for (const char* name : {"id", "type", "role", "content", "stop_reason"})
            if (chance(70)) add(message, name, {pick(kUnread)});
        finish(message, [&] { return chance(50) ? usage() : Value(pick(kOthers)); });
        return message;
    }

    Value usage() {
        Value usage;
        for (const char* name : {"input_tokens", "output_tokens", "cache_read_input_tokens",
                                 "cache_creation_input_tokens"})
            if (chance(80))
                add(usage, name, {chance(70) ? std::to_string(below(5000)) : pick(kCounts)});
        for (const char* name : {"cache_creation", "service_tier"})
            if (chance(60)) add(usage, name, {pick(kUnread)});
        finish(usage, [&] { return Value(pick(kCounts)); });
        return usage;
    }

    // Now and then a key again, with another value, then all keys in a random order.
    template <class Make>
    void finish(Value& object, Make&& make) {
        const size_t count = object.fields.size();
        for (size_t i = 0; i < count; ++i)
            if (chance(12)) add(object, object.fields[i].name, make());
        std::shuffle(object.fields.begin(), object.fields.end(), m_random);
    }

    // The key spelled as is, or now and then with one character escaped.
    void add(Value& object, const std::string& name, Value value) {
        std::string written = name;
        if (!name.empty() && chance(8)) {
            const size_t at = below(name.size());
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(name[at]));
            written = name.substr(0, at) + escape + name.substr(at + 1);
        }
        object.fields.push_back({name, "\"" + written + "\"", std::move(value)});
    }

    void blank(std::string& text) {
        static const std::vector<std::string> kBlanks = {" ", "\t", "\r", "  "};
        if (chance(12)) text += pick(kBlanks);
    }

    void write(const Value& value, const Reading* reading, bool unread, Line& line) {
        if (value.fields.empty() && !value.text.empty()) {
            // A whole number beyond 64 bits fails a full parse of the line; stepped over,
            // it does not (DamageInsideValuesNeverReadGoesUnnoticed). Unread, it is written
            // as one that fits, so that well-formed lines are held to the full parse.
            const bool beyond64Bits = value.text == "18446744073709551616" ||
                                      value.text == "123456789012345678901234567890";
            line.text += unread && beyond64Bits ? "0" : value.text;
            return;
        }
        std::set<std::string> seen;
        line.text += '{';
        for (size_t i = 0; i < value.fields.size(); ++i) {
            const Field& field = value.fields[i];
            if (i > 0) line.text += ',';
            blank(line.text);
            line.text += field.written;
            blank(line.text);
            line.text += ':';
            const size_t begin = line.text.size();
            blank(line.text);
            // Values inside an object the reader does not walk field by field are read
            // whole or stepped over whole, with that object.
            const bool first = seen.insert(field.name).second;
            const bool read = reading && first && reading->keys.count(field.name);
            const bool steppedOver = reading && !read;
            write(field.value, read && field.name == reading->into ? reading->inner : nullptr,
                  unread || steppedOver, line);
            blank(line.text);
            if (steppedOver) line.unread.emplace_back(begin, line.text.size());
        }
        line.text += '}';
    }

    std::mt19937 m_random;
};

// Lines the full parse counts: the ones worth cutting and damaging.
std::vector<Line> countedLines(LineGenerator& generator, size_t count) {
    std::vector<Line> lines;
    while (lines.size() < count) {
        Line line = generator.next();
        if (!fullParse(line.text).empty()) lines.push_back(std::move(line));
    }
    return lines;
}

using ClaudeCodeLinesTest = testing::UTCHome;

TEST_F(ClaudeCodeLinesTest, FixturesCountAsAFullParseCountsThem) {
    size_t fixtures = 0;
    for (const auto& entry : fs::directory_iterator(testing::fixture("claude"))) {
        if (entry.path().extension() != ".jsonl") continue;
        const std::string text = testing::readText(entry.path());
        EXPECT_TRUE(same(onDemand(text), fullParse(text))) << entry.path();
        ++fixtures;
    }
    EXPECT_GE(fixtures, 6u);
}

// Key order, repeated and escaped keys, missing, null and oddly typed fields, numeric
// strings, counts beyond 64 bits: each line alone.
TEST_F(ClaudeCodeLinesTest, WellFormedLinesOfAnyShapeCountAsAFullParseCountsThem) {
    LineGenerator generator(20260302);
    size_t counted = 0;
    for (int i = 0; i < 4000; ++i) {
        const Line line = generator.next();
        const Records reference = fullParse(line.text);
        EXPECT_TRUE(same(onDemand(line.text), reference)) << line.text;
        counted += !reference.empty();
    }
    EXPECT_GT(counted, 500u);  // the generator must not only make lines nobody counts
}

// Which lines claim a request key first, across a whole log, read from a file as a scan
// reads it and from memory.
TEST_F(ClaudeCodeLinesTest, RequestsRepeatedAcrossLinesCountOnceAsAFullParseCountsThem) {
    LineGenerator generator(7);
    for (int file = 0; file < 60; ++file) {
        std::string text;
        for (int i = 0; i < 30; ++i) {
            const Line line = generator.next();
            // Now and then cut off, as a line being written is.
            text += generator.chance(10) ? line.text.substr(0, generator.below(line.text.size()))
                                         : line.text;
            text += '\n';
        }
        if (generator.chance(50)) text.pop_back();  // the last line without its newline
        const Records reference = fullParse(text);
        EXPECT_TRUE(same(onDemand(text), reference)) << text;
        const auto path = write("log-" + std::to_string(file) + ".jsonl", text);
        EXPECT_TRUE(same(ClaudeCodeSource::parse(path), reference)) << text;
    }
}

TEST_F(ClaudeCodeLinesTest, LinesCutOffAnywhereNeverCount) {
    LineGenerator generator(11);
    for (const Line& line : countedLines(generator, 4)) {
        for (size_t length = 1; length < line.text.size(); ++length) {
            const std::string cut = line.text.substr(0, length);
            EXPECT_TRUE(onDemand(cut).empty()) << cut;
        }
    }
}

TEST_F(ClaudeCodeLinesTest, AnythingAfterTheRootObjectDropsTheLine) {
    LineGenerator generator(13);
    const std::vector<std::string> kTails = {
        "}", "]", ",", "x", " x", "{}", R"({"usage":1})", "\"", "null", std::string(1, '\0'), "0"};
    for (const Line& line : countedLines(generator, 40))
        for (const std::string& tail : kTails)
            EXPECT_TRUE(onDemand(line.text + tail).empty()) << line.text + tail;
    // Blanks after it are still JSON.
    const Line line = countedLines(generator, 1).front();
    EXPECT_TRUE(same(onDemand(line.text + " \t\r"), fullParse(line.text)));
}

// Checked over the whole line before any field is read, so never stepped over.
TEST_F(ClaudeCodeLinesTest, InvalidUTF8OrRawControlCharactersAnywhereDropTheLine) {
    LineGenerator generator(17);
    const std::vector<std::string> kInvalid = {"\xC3",         "\xFF",     "\x80",
                                               "\xED\xA0\x80", "\xC0\xAF", "\xF4\x90\x80\x80"};
    for (const Line& line : countedLines(generator, 300)) {
        std::string damaged = line.text;
        damaged.insert(generator.below(damaged.size() + 1), generator.pick(kInvalid));
        EXPECT_TRUE(same(onDemand(damaged), fullParse(damaged))) << damaged;
        // Inside a string, whether the reader reads it or steps over it.
        for (const char* string : {"\"text\":\"", "\"timestamp\":\"", "\"model\":\""}) {
            const size_t at = line.text.find(string);
            if (at == std::string::npos) continue;
            std::string control = line.text;
            control.insert(at + std::strlen(string), 1, generator.chance(50) ? '\x01' : '\t');
            EXPECT_TRUE(onDemand(control).empty()) << control;
        }
    }
}

// One byte changed anywhere: the line counts as a full parse counts it, except where the
// byte lies in a value the reader never reads; there it may count as if whole.
TEST_F(ClaudeCodeLinesTest, ADamagedByteCountsAsAFullParseCountsItUnlessInAValueNeverRead) {
    LineGenerator generator(19);
    const std::string kBytes =
        std::string("{}[]:,\"\\ \tax09-.eEnt+") + '\0' + "\x01\x1f\x7f\x80\xbf\xc3\xe2\xff";
    for (const Line& line : countedLines(generator, 600)) {
        for (int flip = 0; flip < 8; ++flip) {
            const size_t at = generator.below(line.text.size());
            std::string damaged = line.text;
            damaged[at] = kBytes[generator.below(kBytes.size())];
            const Records read = onDemand(damaged);
            const Records reference = fullParse(damaged);
            if (read == reference) continue;
            EXPECT_TRUE(line.isUnread(at) && reference.empty() && same(read, fullParse(line.text)))
                << "byte " << at << " of " << damaged << same(read, reference).message();
        }
    }
}

// The price of not parsing every content string: what is wrong inside a value that is
// stepped over goes unnoticed, and the line counts as if whole. A whole number beyond 64
// bits, which is valid JSON but fails a full parse, no longer drops the line either.
TEST_F(ClaudeCodeLinesTest, DamageInsideValuesNeverReadGoesUnnoticed) {
    const std::string before =
        R"({"requestId":"r1","timestamp":"2026-03-02T10:00:00Z","message":{"content":)";
    const std::string after = R"(,"usage":{"input_tokens":5}}})";
    for (const char* content :
         {R"([{"text":"bad \x escape"}])", R"([{"stop":nul}])", R"([{"a":1 "b":2}])",
          R"([{"a":01}])", R"([{"a":[1}]])", R"([{"n":123456789012345678901234567890}])"}) {
        const std::string line = before + content + after;
        EXPECT_TRUE(fullParse(line).empty()) << line;
        EXPECT_EQ(testing::describe(onDemand(line)),
                  (std::vector<std::string>{"claude-code|unknown|1772409600.0|| "
                                            "@2026-03-02T10:00:00Z session calls=1 in=5 out=0 "
                                            "cr=0 cw=0 rs=0"}))
            << line;
    }
}

// On-Demand reads one byte past a line whose brackets do not balance: what lies there must
// not decide whether the line counts. In memory the copy's last line lies there; in a file,
// the next line, or for a last line the reader's buffer.
TEST_F(ClaudeCodeLinesTest, AMalformedLineCountsOrNotByItselfWhateverCameBeforeIt) {
    const std::string longer =
        R"({"requestIx":"x","timestamp":"2026-03-02T10:00:00Z","message":{"content":[],"usage":{"input_tokens":5}}})";
    const std::string bad =
        R"({"requestId":"r","timestamp":"2026-03-02T10:00:00Z","message":{"content":],"usage":{"input_tokens":5}}})";
    auto calls = [](const Records& records) {
        int64_t sum = 0;
        for (const UsageRecord& record : records)
            sum += record.calls;
        return sum;
    };
    const int64_t alone = calls(onDemand(bad));
    EXPECT_EQ(calls(onDemand(longer + "\n" + bad)), alone + 1);
    EXPECT_EQ(calls(ClaudeCodeSource::parse(write("a.jsonl", longer + "\n" + bad))), alone + 1);
    EXPECT_EQ(calls(ClaudeCodeSource::parse(write("b.jsonl", bad))), alone);
}

}  // namespace
}  // namespace usagekit
