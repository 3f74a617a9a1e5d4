// How Tally's own types become JSON and back. A codable type T has
//   void encode(JsonWriter&) const          (keys in ascending byte order)
//   static std::optional<T> decode(const JSON&)   (absent when anything required is missing)
// Lists decode all or nothing: one bad element fails the list, as a state file should.
#pragma once

#include "core/date.h"
#include "core/json.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace usagekit {

template <class T>
struct JSONCoding {
    static void encode(JsonWriter& writer, const T& value) { value.encode(writer); }
    static std::optional<T> decode(const JSON& json) { return T::decode(json); }
};

template <class T>
struct JSONCoding<std::vector<T>> {
    static void encode(JsonWriter& writer, const std::vector<T>& values) {
        writer.beginArray();
        for (const T& value : values)
            JSONCoding<T>::encode(writer, value);
        writer.endArray();
    }
    static std::optional<std::vector<T>> decode(const JSON& json) {
        if (!json.isArray()) return std::nullopt;
        std::vector<T> out;
        for (const JSON& element : json.array()) {
            auto value = JSONCoding<T>::decode(element);
            if (!value) return std::nullopt;
            out.push_back(std::move(*value));
        }
        return out;
    }
};

// The items of a map in ascending byte order of key, the order every state file is written
// in, for maps that do not keep one.
template <class Map>
std::vector<const typename Map::value_type*> sortedByKey(const Map& map) {
    std::vector<const typename Map::value_type*> items;
    items.reserve(map.size());
    for (const auto& item : map)
        items.push_back(&item);
    std::sort(items.begin(), items.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    return items;
}

// Encodes with ISO 8601 dates; pretty output is indented with keys sorted.
template <class T>
std::string jsonData(const T& value, bool pretty) {
    JsonWriter writer(pretty);
    JSONCoding<T>::encode(writer, value);
    return writer.take();
}

// Strict readers for our own files: the JSON must hold exactly the type asked for.
namespace Decode {
std::optional<std::string> string(const JSON& json);
std::optional<int64_t> integer(const JSON& json);  // a whole number within 64 bits, exactly
std::optional<double> number(const JSON& json);
std::optional<bool> boolean(const JSON& json);
std::optional<Date> date(const JSON& json);  // ISO 8601 text
// Missing or null is "absent" (true in the outer optional); a wrong type fails (nullopt).
std::optional<std::optional<std::string>> optionalString(const JSON& json);
std::optional<std::optional<double>> optionalNumber(const JSON& json);

// The same readers over simdjson's On-Demand values, for files too large to parse into a
// DOM first. Each consumes the value it is given.
namespace OnDemand {
std::optional<std::string_view> string(simdjson::ondemand::value json);  // until next parse
std::optional<int64_t> integer(simdjson::ondemand::value json);
std::optional<double> number(simdjson::ondemand::value json);
std::optional<Date> date(simdjson::ondemand::value json);
std::optional<std::optional<std::string>> optionalString(simdjson::ondemand::value json);
std::optional<std::optional<double>> optionalNumber(simdjson::ondemand::value json);
}  // namespace OnDemand
}  // namespace Decode

namespace Encode {
void date(JsonWriter& writer, Date date);
}

}  // namespace usagekit
