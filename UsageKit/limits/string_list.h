// JSON arrays of strings, as the budget and plan-limit state files keep their announced
// keys. Decoding is all or nothing, like every list in our own files.
#pragma once

#include "core/json.h"
#include "core/json_coding.h"

#include <optional>
#include <string>
#include <vector>

namespace usagekit::StringList {

inline void encode(JsonWriter& writer, const std::vector<std::string>& strings) {
    writer.beginArray();
    for (const std::string& text : strings)
        writer.value(text);
    writer.endArray();
}

inline std::optional<std::vector<std::string>> decode(const JSON& json) {
    if (!json.isArray()) return std::nullopt;
    std::vector<std::string> strings;
    for (const JSON& element : json.array()) {
        auto text = Decode::string(element);
        if (!text) return std::nullopt;
        strings.push_back(std::move(*text));
    }
    return strings;
}

}  // namespace usagekit::StringList
