// The figures views and reports ask of a list of records: totals split into billed and
// equivalent money, breakdowns ("slices") and day series ("points").
#pragma once

#include "core/date.h"
#include "core/provider.h"

#include <cstdint>
#include <string>
#include <vector>

namespace usagekit {

struct Totals {
    int64_t tokens = 0;  // input + output + cacheRead + cacheWrite; reasoning left out
    int64_t calls = 0;
    double billedUSD = 0;      // metered providers: money billed
    double equivalentUSD = 0;  // seat providers: what the tokens would cost at API rates
    std::vector<std::string> unpricedModels;  // no reported cost and no rate; sorted, unique
    int64_t uncachedInput = 0;
    int64_t cacheRead = 0;
    int64_t cacheWrite = 0;
    int64_t output = 0;
    int64_t reasoning = 0;

    double allUSD() const { return billedUSD + equivalentUSD; }
};

struct Slice {
    std::string id;
    std::string label;
    int64_t tokens = 0;
    int64_t calls = 0;
    double costUSD = 0;
    bool metered = false;
    bool unpriced = false;  // some record had neither a reported cost nor a rate
};

struct Point {
    Date day;  // start of a local calendar day
    Provider provider;
    int64_t tokens = 0;
    double costUSD = 0;

    std::string id() const { return doubleDescription(day.secondsSince1970) + "|" + provider.id; }
};

}  // namespace usagekit
