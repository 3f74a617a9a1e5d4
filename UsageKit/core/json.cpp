#include "core/json.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace usagekit {

using simdjson::dom::element_type;

namespace {

// Only called after the type was checked, so the lookups cannot fail.
simdjson::dom::array arrayOf(simdjson::dom::element element) {
    simdjson::dom::array array;
    if (element.get_array().get(array)) return {};
    return array;
}

simdjson::dom::object objectOf(simdjson::dom::element element) {
    simdjson::dom::object object;
    if (element.get_object().get(object)) return {};
    return object;
}

}  // namespace

std::optional<JSON::Kind> JSON::kind() const {
    if (!m_present) return std::nullopt;
    switch (m_element.type()) {
        case element_type::BOOL:
            return Kind::Bool;
        case element_type::INT64:
        case element_type::UINT64:
        case element_type::DOUBLE:
            return Kind::Number;
        case element_type::STRING:
            return Kind::String;
        case element_type::ARRAY:
            return Kind::Array;
        case element_type::OBJECT:
            return Kind::Object;
        case element_type::NULL_VALUE:
            return Kind::Null;
    }
    return std::nullopt;
}

std::optional<std::string_view> JSON::string() const {
    if (!m_present) return std::nullopt;
    std::string_view text;
    if (m_element.get_string().get(text)) return std::nullopt;
    return text;
}

std::optional<double> decimalNumber(std::string_view text) {
    if (text.empty()) return std::nullopt;
    // from_chars takes no leading '+', which a C-locale reader accepts.
    if (text[0] == '+') {
        text.remove_prefix(1);
        if (text.empty() || text[0] == '-' || text[0] == '+') return std::nullopt;
    }
    // from_chars also reads "nan", "inf" and "infinity", which are no decimal numbers.
    const char first = text[0] == '-' && text.size() > 1 ? text[1] : text[0];
    if (!((first >= '0' && first <= '9') || first == '.')) return std::nullopt;
    double value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec == std::errc::result_out_of_range) {
        // Too large reads as ±infinity and too small as zero, as a C reader gives them.
        if (end != text.data() + text.size()) return std::nullopt;
        const bool negative = text[0] == '-';
        const bool tiny = text.find("e-") != std::string_view::npos ||
                          text.find("E-") != std::string_view::npos ||
                          text.substr(negative ? 1 : 0).starts_with("0");
        if (tiny) return negative ? -0.0 : 0.0;
        return negative ? -HUGE_VAL : HUGE_VAL;
    }
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<double> JSON::number() const {
    if (!m_present) return std::nullopt;
    switch (m_element.type()) {
        case element_type::INT64:
        case element_type::UINT64:
        case element_type::DOUBLE: {
            double value = 0;
            if (m_element.get_double().get(value)) return std::nullopt;
            return value;
        }
        case element_type::BOOL:
            return bool(m_element.get_bool().value_unsafe()) ? 1.0 : 0.0;
        case element_type::STRING:
            return decimalNumber(m_element.get_string().value_unsafe());
        default:
            return std::nullopt;
    }
}

int64_t JSON::integer() const {
    auto value = number();
    return value ? truncatedCount(*value) : 0;
}

std::optional<int64_t> JSON::exactInteger() const {
    if (!m_present || m_element.type() != element_type::INT64) return std::nullopt;
    return m_element.get_int64().value_unsafe();
}

bool JSON::boolean() const {
    if (!m_present) return false;
    if (m_element.type() == element_type::BOOL) return m_element.get_bool().value_unsafe();
    auto value = number();
    return value && *value != 0;
}

bool JSON::isNull() const {
    return m_present && m_element.type() == element_type::NULL_VALUE;
}
bool JSON::isObject() const {
    return m_present && m_element.type() == element_type::OBJECT;
}
bool JSON::isArray() const {
    return m_present && m_element.type() == element_type::ARRAY;
}

JSON JSON::operator[](std::string_view key) const {
    if (!isObject()) return JSON();
    simdjson::dom::element child;
    if (objectOf(m_element).at_key(key).get(child)) return JSON();
    return JSON(child);
}

JSON JSON::operator[](size_t index) const {
    if (!isArray()) return JSON();
    simdjson::dom::element child;
    if (arrayOf(m_element).at(index).get(child)) return JSON();
    return JSON(child);
}

std::vector<JSON> JSON::array() const {
    std::vector<JSON> out;
    if (!isArray()) return out;
    for (simdjson::dom::element child : arrayOf(m_element))
        out.emplace_back(child);
    return out;
}

std::vector<std::pair<std::string_view, JSON>> JSON::members() const {
    std::vector<std::pair<std::string_view, JSON>> out;
    if (!isObject()) return out;
    for (auto field : objectOf(m_element))
        out.emplace_back(field.key, JSON(field.value));
    return out;
}

JSON JSON::find(std::string_view key) const {
    if (isObject()) {
        JSON own = (*this)[key];
        if (own.exists()) return own;
        for (auto field : objectOf(m_element)) {
            JSON hit = JSON(field.value).find(key);
            if (hit.exists()) return hit;
        }
    } else if (isArray()) {
        for (simdjson::dom::element child : arrayOf(m_element)) {
            JSON hit = JSON(child).find(key);
            if (hit.exists()) return hit;
        }
    }
    return JSON();
}

void JSON::write(JsonWriter& writer) const {
    if (!m_present) {
        writer.null();
        return;
    }
    switch (m_element.type()) {
        case element_type::BOOL:
            writer.value(bool(m_element.get_bool().value_unsafe()));
            break;
        case element_type::INT64:
            writer.value(m_element.get_int64().value_unsafe());
            break;
        case element_type::UINT64:
        case element_type::DOUBLE:
            writer.value(m_element.get_double().value_unsafe());
            break;
        case element_type::STRING:
            writer.value(m_element.get_string().value_unsafe());
            break;
        case element_type::NULL_VALUE:
            writer.null();
            break;
        case element_type::ARRAY:
            writer.beginArray();
            for (simdjson::dom::element child : arrayOf(m_element))
                JSON(child).write(writer);
            writer.endArray();
            break;
        case element_type::OBJECT: {
            // Keys in ascending byte order, like everything else we write.
            auto fields = members();
            std::stable_sort(fields.begin(), fields.end(),
                             [](auto& a, auto& b) { return a.first < b.first; });
            writer.beginObject();
            for (auto& [name, child] : fields) {
                writer.key(name);
                child.write(writer);
            }
            writer.endObject();
            break;
        }
    }
}

namespace {

// The bytes of `word` equal to `c`, as the high bit of each. Exact up to the first such
// byte, which is all that is used.
constexpr uint64_t bytesEqual(uint64_t word, unsigned char c) {
    constexpr uint64_t kOnes = 0x0101010101010101;
    const uint64_t x = word ^ (kOnes * c);
    return (x - kOnes) & ~x & (kOnes << 7);
}

}  // namespace

bool OnDemandJSON::key(simdjson::ondemand::field& field, std::string_view& name) {
    // Stage 1 has checked that every string closes, so the scan stops at the closing quote
    // at the latest, and a word read past it stays within the padding after the document.
    const char* key = field.key().raw();
    for (size_t at = 0;; at += 8) {
        uint64_t word;
        std::memcpy(&word, key + at, sizeof word);
        if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
        const uint64_t stops = bytesEqual(word, '"') | bytesEqual(word, '\\');
        if (!stops) continue;
        const size_t end = at + static_cast<size_t>(std::countr_zero(stops)) / 8;
        if (key[end] == '\\') break;
        name = std::string_view(key, end);
        return true;
    }
    return field.unescaped_key().get(name) == simdjson::SUCCESS;
}

bool OnDemandJSON::endedAtRoot(simdjson::ondemand::document& document) {
    return document.current_location().error() == simdjson::OUT_OF_BOUNDS;
}

std::optional<JSON> JSONParser::parse(std::string_view text) {
    simdjson::dom::element root;
    if (m_parser.parse(text.data(), text.size(), true).get(root)) return std::nullopt;
    return JSON(root);
}

std::optional<JSONDocument> JSONDocument::parse(std::string_view text) {
    JSONDocument document;
    document.m_parser = std::make_unique<JSONParser>();
    auto root = document.m_parser->parse(text);
    if (!root) return std::nullopt;
    document.m_root = *root;
    return document;
}

// --- writing ---

void writeJSONString(std::string& out, std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    out.push_back('"');
    bool checkedUTF8 = false, validUTF8 = true;
    size_t i = 0;
    while (i < text.size()) {
        // Copy the run of bytes that need nothing in one go; most text is such a run.
        size_t run = i;
        while (run < text.size()) {
            const unsigned char c = static_cast<unsigned char>(text[run]);
            if (c < 0x20 || c == '"' || c == '\\' || c >= 0x80) break;
            ++run;
        }
        out.append(text.data() + i, run - i);
        i = run;
        if (i == text.size()) break;

        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(static_cast<char>(c));
        } else if (c < 0x20) {
            switch (c) {
                case '\n':
                    out += "\\n";
                    break;
                case '\r':
                    out += "\\r";
                    break;
                case '\t':
                    out += "\\t";
                    break;
                case '\b':
                    out += "\\b";
                    break;
                case '\f':
                    out += "\\f";
                    break;
                default:
                    out += "\\u00";
                    out.push_back(kHex[c >> 4]);
                    out.push_back(kHex[c & 15]);
            }
        } else {
            // Paths and log text may hold bytes that are not UTF-8; replace those rather
            // than write a file that no reader will accept.
            if (!checkedUTF8) {
                validUTF8 = simdjson::validate_utf8(text.data(), text.size());
                checkedUTF8 = true;
            }
            size_t length = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
            if (validUTF8 || (length > 1 && i + length <= text.size() &&
                              simdjson::validate_utf8(text.data() + i, length))) {
                length = std::min(length, text.size() - i);
                out.append(text.data() + i, length);
                i += length;
                continue;
            }
            out += "\xEF\xBF\xBD";  // U+FFFD
        }
        ++i;
    }
    out.push_back('"');
}

void writeJSONNumber(std::string& out, double number) {
    if (!std::isfinite(number)) throw std::invalid_argument("JSON cannot hold a non-finite number");
    char buf[64];
    // Whole numbers as plain digits (1750000000, not 1.75e+09), the rest in shortest form.
    // Plain digits beyond 64 bits read back as no number at all (1.2345678901234568e20 is
    // shortest as 21 digits), so from 2^63 on a number always has an exponent.
    const double magnitude = std::fabs(number);
    const bool whole = number == std::trunc(number) && magnitude < 1e17;
    std::to_chars_result written;
    if (whole)
        written = std::to_chars(buf, buf + sizeof buf, number, std::chars_format::fixed);
    else if (magnitude >= 9223372036854775808.0)
        written = std::to_chars(buf, buf + sizeof buf, number, std::chars_format::scientific);
    else
        written = std::to_chars(buf, buf + sizeof buf, number);
    out.append(buf, written.ptr);
}

void JsonWriter::newline() {
    m_out.push_back('\n');
    m_out.append(static_cast<size_t>(m_depth) * 2, ' ');
}

void JsonWriter::beforeValue() {
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (m_depth == 0) return;
    if (!m_first) m_out.push_back(',');
    if (m_pretty) newline();
    m_first = false;
}

void JsonWriter::beginObject() {
    beforeValue();
    m_out.push_back('{');
    ++m_depth;
    m_first = true;
}

void JsonWriter::endObject() {
    --m_depth;
    if (!m_first && m_pretty) newline();
    m_out.push_back('}');
    m_first = false;
}

void JsonWriter::beginArray() {
    beforeValue();
    m_out.push_back('[');
    ++m_depth;
    m_first = true;
}

void JsonWriter::endArray() {
    --m_depth;
    if (!m_first && m_pretty) newline();
    m_out.push_back(']');
    m_first = false;
}

void JsonWriter::key(std::string_view name) {
    beforeValue();
    writeJSONString(m_out, name);
    m_out += m_pretty ? " : " : ":";
    m_afterKey = true;
}

void JsonWriter::value(std::string_view text) {
    beforeValue();
    writeJSONString(m_out, text);
}

void JsonWriter::value(int64_t number) {
    beforeValue();
    char buf[24];
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, number);
    m_out.append(buf, end);
}

void JsonWriter::value(double number) {
    beforeValue();
    writeJSONNumber(m_out, number);
}

void JsonWriter::value(bool flag) {
    beforeValue();
    m_out += flag ? "true" : "false";
}

void JsonWriter::null() {
    beforeValue();
    m_out += "null";
}

}  // namespace usagekit
