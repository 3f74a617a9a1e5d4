// The one record every source produces: who, when, which model, for which project and
// session, and the token counts. `input` counts uncached input only.
#pragma once

#include "core/date.h"
#include "core/json.h"
#include "core/provider.h"

#include <cstdint>
#include <optional>
#include <string>

namespace usagekit {

struct UsageRecord {
    std::string id;
    Date date;
    Provider provider;
    std::string model;
    std::optional<std::string> project;
    std::optional<std::string> session;
    std::string kind;
    int64_t calls = 0;
    int64_t input = 0;
    int64_t output = 0;
    int64_t cacheRead = 0;
    int64_t cacheWrite = 0;
    int64_t reasoning = 0;
    std::optional<double> reportedCostUSD;

    // input + output + cacheRead + cacheWrite. Reasoning is left out of every token sum.
    // These throw OutOfRange on overflow; sources never keep a record where they would.
    int64_t total() const;
    int64_t read() const;  // every input-side token
    // The last path component of the project, or "—" when there is none.
    std::string projectName() const;

    void encode(JsonWriter& writer) const;
    static std::optional<UsageRecord> decode(const JSON& json);
    // The same decoding, on the On-Demand parser that reads the scan cache.
    static std::optional<UsageRecord> decode(simdjson::ondemand::value json);

    bool operator==(const UsageRecord&) const = default;
};

}  // namespace usagekit
