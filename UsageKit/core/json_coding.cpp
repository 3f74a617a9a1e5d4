#include "core/json_coding.h"

#include <cmath>

namespace usagekit {

std::optional<std::string> Decode::string(const JSON& json) {
    auto text = json.string();
    if (!text) return std::nullopt;
    return std::string(*text);
}

namespace {

// A number our own files may hold as a count: whole and within 64 bits.
std::optional<int64_t> wholeCount(double value) {
    if (value != std::trunc(value)) return std::nullopt;
    try {
        return truncatedCount(value);
    } catch (const OutOfRange&) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<int64_t> Decode::integer(const JSON& json) {
    if (json.kind() != JSON::Kind::Number) return std::nullopt;
    // Folded sums pass 2^53; written as integers, they are read back exactly.
    if (auto exact = json.exactInteger()) return exact;
    return wholeCount(*json.number());
}

std::optional<double> Decode::number(const JSON& json) {
    if (json.kind() != JSON::Kind::Number) return std::nullopt;
    return json.number();
}

std::optional<bool> Decode::boolean(const JSON& json) {
    if (json.kind() != JSON::Kind::Bool) return std::nullopt;
    return json.boolean();
}

std::optional<Date> Decode::date(const JSON& json) {
    auto text = json.string();
    if (!text) return std::nullopt;
    return ISO8601::parse(*text);
}

std::optional<std::optional<std::string>> Decode::optionalString(const JSON& json) {
    if (!json.hasValue()) return std::optional<std::string>();
    auto text = string(json);
    if (!text) return std::nullopt;
    return std::optional<std::string>(std::move(*text));
}

std::optional<std::optional<double>> Decode::optionalNumber(const JSON& json) {
    if (!json.hasValue()) return std::optional<double>();
    auto value = number(json);
    if (!value) return std::nullopt;
    return std::optional<double>(*value);
}

namespace od = simdjson::ondemand;

std::optional<std::string_view> Decode::OnDemand::string(od::value json) {
    std::string_view text;
    if (json.get_string().get(text)) return std::nullopt;
    return text;
}

std::optional<double> Decode::OnDemand::number(od::value json) {
    od::json_type type;
    double value = 0;
    if (json.type().get(type) || type != od::json_type::number || json.get_double().get(value))
        return std::nullopt;
    return value;
}

std::optional<int64_t> Decode::OnDemand::integer(od::value json) {
    // Counts are nearly always plain integers, read exactly at any size, as the DOM reader
    // reads them; any other spelling of a number goes through a double.
    int64_t exact = 0;
    if (json.get_int64().get(exact) == simdjson::SUCCESS) return exact;
    auto value = number(json);
    if (!value) return std::nullopt;
    return wholeCount(*value);
}

std::optional<Date> Decode::OnDemand::date(od::value json) {
    auto text = string(json);
    if (!text) return std::nullopt;
    return ISO8601::parse(*text);
}

namespace {
// Whether the value is null (and then consumed); absent when it cannot be read.
std::optional<bool> isNull(od::value& json) {
    bool null = false;
    if (json.is_null().get(null)) return std::nullopt;
    return null;
}
}  // namespace

std::optional<std::optional<std::string>> Decode::OnDemand::optionalString(od::value json) {
    auto null = isNull(json);
    if (!null) return std::nullopt;
    if (*null) return std::optional<std::string>();
    auto text = string(json);
    if (!text) return std::nullopt;
    return std::optional<std::string>(std::string(*text));
}

std::optional<std::optional<double>> Decode::OnDemand::optionalNumber(od::value json) {
    auto null = isNull(json);
    if (!null) return std::nullopt;
    if (*null) return std::optional<double>();
    auto value = number(json);
    if (!value) return std::nullopt;
    return std::optional<double>(*value);
}

void Encode::date(JsonWriter& writer, Date date) {
    writer.value(ISO8601::format(date));
}

}  // namespace usagekit
