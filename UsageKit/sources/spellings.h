// Clients of one tool have written the same count under several names; the readers add
// every spelling present, none wins over another.
#pragma once

#include "core/checked.h"
#include "core/json.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace usagekit {

// The sum of `object[key]` over `keys` (number accessor; missing counts 0). Throws
// OutOfRange when a count or the sum goes beyond 64 bits.
inline int64_t sumOfSpellings(const JSON& object, std::span<const std::string_view> keys) {
    int64_t sum = 0;
    for (std::string_view key : keys)
        sum = checkedAdd(sum, object[key].integer());
    return sum;
}

}  // namespace usagekit
