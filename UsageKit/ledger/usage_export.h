// Records as CSV for spreadsheets or JSON for scripts, oldest first, each with its cost
// from the given pricing and whether it was billed (metered) or seat usage.
#pragma once

#include "core/pricing.h"
#include "core/usage_record.h"

#include <string>
#include <vector>

namespace usagekit::UsageExport {

// Header line, then one line per record; fields holding a comma, a double quote or a
// line feed are quoted with inner quotes doubled. Ends with a line feed.
std::string csv(const std::vector<UsageRecord>& records, const Pricing& pricing);
// A pretty JSON array of rows (keys sorted, slashes unescaped, ISO 8601 dates). Throws
// std::invalid_argument if a cost is not a finite number.
std::string json(const std::vector<UsageRecord>& records, const Pricing& pricing);

}  // namespace usagekit::UsageExport
