// Turns tokens into dollars. A record's own reported cost wins; otherwise its model is
// looked up in the rate table (built in, overridable row by row in "pricing.json") by its
// lower-cased name, falling back to the longest key that the name extends with "-".
#pragma once

#include "core/json.h"
#include "core/usage_record.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace usagekit {

// US dollars per million tokens.
struct Rate {
    double input = 0;
    double output = 0;
    double cacheRead = 0;
    double cacheWrite = 0;

    Rate() = default;
    // Absent cache rates default to 0.1 × and 1.25 × input, computed in double precision.
    Rate(double input, double output, std::optional<double> cacheRead = std::nullopt,
         std::optional<double> cacheWrite = std::nullopt);

    bool operator==(const Rate&) const = default;
    void encode(JsonWriter& writer) const;
    static std::optional<Rate> decode(const JSON& json);  // all four keys required
};

struct Pricing {
    std::map<std::string, Rate> rates;
    std::string updated;
    std::string source;

    static const Pricing& builtIn();
    static std::filesystem::path file();
    // The built-in table with the file's rows laid over it; the built-in table alone when
    // the file is missing or any part of it does not decode. Never fails.
    static Pricing load();
    void save() const;  // failures are ignored

    std::optional<Rate> rate(std::string_view model) const;
    bool knowsRate(std::string_view model) const { return rate(model).has_value(); }
    double cost(const UsageRecord& record) const;
    // The cost of the record's tokens at `rate`, its reported cost aside.
    static double costAt(const UsageRecord& record, const Rate& rate);

    bool operator==(const Pricing&) const = default;
    void encode(JsonWriter& writer) const;
    static std::optional<Pricing> decode(const JSON& json);
};

// Sum of record costs in list order from 0.0; the second form only over records whose
// provider's isMetered equals `metered`.
double cost(const std::vector<UsageRecord>& records, const Pricing& pricing);
double cost(const std::vector<UsageRecord>& records, const Pricing& pricing, bool metered);

}  // namespace usagekit
