// JSON values as Tally reads them: a light view over a parsed document with the lenient
// accessors every log and answer reader relies on (numeric strings count as numbers, a
// missing key reads as absent, never as an error).
//
// A JSON is a view: it stays valid while the JSONParser or JSONDocument that produced it
// lives and has not parsed anything else. Nothing here throws except integer(), which
// raises OutOfRange for a count that does not fit 64 bits.
#pragma once

#include "core/checked.h"

#include <simdjson.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace usagekit {

class JsonWriter;

class JSON {
  public:
    enum class Kind { Bool, Number, String, Array, Object, Null };

    JSON() = default;  // absent: every accessor gives its "absent" answer
    explicit JSON(simdjson::dom::element element) : m_element(element), m_present(true) {}

    bool exists() const { return m_present; }
    // Present and not null: how readers test "usage is there".
    bool hasValue() const { return m_present && !isNull(); }
    std::optional<Kind> kind() const;

    std::optional<std::string_view> string() const;
    // The number as is; true/false as 1/0; a string that is wholly a decimal number.
    std::optional<double> number() const;
    // number() truncated toward zero; absent reads 0. Throws OutOfRange beyond 64 bits.
    int64_t integer() const;
    // A number written as an integer that fits 64 bits, exactly (integer() goes through a
    // double, which rounds beyond 2^53); absent for anything else.
    std::optional<int64_t> exactInteger() const;
    // true, a non-zero number, or a string that is a non-zero number.
    bool boolean() const;
    bool isNull() const;
    bool isObject() const;
    bool isArray() const;

    JSON operator[](std::string_view key) const;
    JSON operator[](size_t index) const;
    std::vector<JSON> array() const;                                 // empty unless an array
    std::vector<std::pair<std::string_view, JSON>> members() const;  // empty unless an object

    // Depth-first: an object's own member first, then each member value in turn; arrays
    // element by element. The first hit wins.
    JSON find(std::string_view key) const;

    // Writes the value back as JSON (compact or pretty, as the writer is set).
    void write(JsonWriter& writer) const;

  private:
    simdjson::dom::element m_element;
    bool m_present = false;
};

// The whole text must be a decimal number in the C locale; a leading blank fails.
std::optional<double> decimalNumber(std::string_view text);

// Helpers for simdjson's On-Demand parser, which the hot readers use: it walks a document
// once and steps over what it is not asked for, where a DOM copies every string.
namespace OnDemandJSON {
// A field's key compared the way a parsed document compares keys: unescaped, so that
// "us\u0061ge" is "usage". Keys almost never hold an escape, so a key is taken as written
// when it holds none, its closing quote found eight bytes at a time, rather than copied
// out unescaped. Reads past the key stay within the document's padding. False when the
// key cannot be read.
bool key(simdjson::ondemand::field& field, std::string_view& name);
// Whether the document ended where its root value closed: text after it, or a root that
// never closed, makes a document as unreadable as a torn one.
bool endedAtRoot(simdjson::ondemand::document& document);

// Calls `member(key, value)` for each field of `json` in order; `member` returns false to
// stop with failure. False when `json` is not an object or a field cannot be read.
template <class Member>
bool forEachField(simdjson::ondemand::value json, Member&& member) {
    simdjson::ondemand::object object;
    if (json.get_object().get(object)) return false;
    for (auto item : object) {
        simdjson::ondemand::field field;
        std::string_view name;
        if (std::move(item).get(field) || !key(field, name)) return false;
        if (!member(name, field.value())) return false;
    }
    return true;
}
}  // namespace OnDemandJSON

// A reusable parser: one per thread, reused line after line. The JSON it returns is valid
// until the next parse.
class JSONParser {
  public:
    std::optional<JSON> parse(std::string_view text);

  private:
    simdjson::dom::parser m_parser;
};

// A parsed document that owns its memory; movable, so it can be returned and kept.
class JSONDocument {
  public:
    static std::optional<JSONDocument> parse(std::string_view text);
    JSON root() const { return m_root; }

  private:
    std::unique_ptr<JSONParser> m_parser;
    JSON m_root;
};

// Writes JSON text. Pretty output is indented by two blanks with " : " between key and
// value; callers write object keys in ascending byte order (our encoders do), which is
// what makes state files diff cleanly. Slashes are never escaped.
class JsonWriter {
  public:
    explicit JsonWriter(bool pretty) : m_pretty(pretty) {}

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    void key(std::string_view name);

    void value(std::string_view text);
    void value(const char* text) { value(std::string_view(text)); }
    void value(const std::string& text) { value(std::string_view(text)); }
    void value(int64_t number);
    void value(int number) { value(static_cast<int64_t>(number)); }
    void value(double number);  // throws std::invalid_argument when not finite
    void value(bool flag);
    void null();

    const std::string& text() const { return m_out; }
    std::string take() { return std::move(m_out); }

  private:
    void beforeValue();
    void newline();

    std::string m_out;
    bool m_pretty;
    int m_depth = 0;
    bool m_first = true;
    bool m_afterKey = false;
};

void writeJSONString(std::string& out, std::string_view text);
// Shortest text that reads back to the same double; whole numbers below 1e17 as plain
// digits, and from 2^63 on always with an exponent, which every JSON reader takes.
void writeJSONNumber(std::string& out, double number);

}  // namespace usagekit
