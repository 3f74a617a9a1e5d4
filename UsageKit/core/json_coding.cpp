#include "core/json_coding.h"

#include <cmath>

namespace usagekit {

std::optional<std::string> Decode::string(const JSON& json) {
    auto text = json.string();
    if (!text) return std::nullopt;
    return std::string(*text);
}

std::optional<int64_t> Decode::integer(const JSON& json) {
    if (json.kind() != JSON::Kind::Number) return std::nullopt;
    double value = *json.number();
    if (value != std::trunc(value)) return std::nullopt;
    try {
        return truncatedCount(value);
    } catch (const OutOfRange&) {
        return std::nullopt;
    }
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

void Encode::date(JsonWriter& writer, Date date) {
    writer.value(ISO8601::format(date));
}

}  // namespace usagekit
