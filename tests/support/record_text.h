// Records as one line of text each, so that a test can state every field it expects in one
// readable comparison and a failure shows which field differs:
//   <id> @<ISO date> <kind> calls=2 in=8 out=470 cr=83000 cw=1100 rs=0 [cost=2.5]
// The id of a folded record already spells provider, model, day, project and session.
// A fixture's expected records sit beside it in a ".expected" file of such lines.
#pragma once

#include "core/date.h"
#include "core/usage_record.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

namespace usagekit::testing {

inline std::string describe(const UsageRecord& r) {
    std::string text = r.id + " @" + ISO8601::format(r.date) + " " + r.kind +
                       " calls=" + std::to_string(r.calls) + " in=" + std::to_string(r.input) +
                       " out=" + std::to_string(r.output) + " cr=" + std::to_string(r.cacheRead) +
                       " cw=" + std::to_string(r.cacheWrite) + " rs=" + std::to_string(r.reasoning);
    if (r.reportedCostUSD) text += " cost=" + doubleDescription(*r.reportedCostUSD);
    return text;
}

// Sorted, because folding and directory enumeration promise no order.
inline std::vector<std::string> describe(const std::vector<UsageRecord>& records) {
    std::vector<std::string> lines;
    for (const UsageRecord& r : records)
        lines.push_back(describe(r));
    std::sort(lines.begin(), lines.end());
    return lines;
}

// The records a fixture must give: tests/data/<relative> with its extension replaced by
// ".expected", one describe() line each, in sorted order.
inline std::vector<std::string> expectedRecords(const std::string& relative) {
    const fs::path path = fixture(relative).replace_extension(".expected");
    std::ifstream in(path);
    if (!in) ADD_FAILURE() << "no " << path;
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Checks the records a reader made of a fixture file against the fixture's ".expected"
// file, and that reading its text from memory gave the same records: both must go through
// the same line rules.
inline void expectFixtureRecords(const std::string& relative,
                                 const std::vector<UsageRecord>& fromFile,
                                 const std::vector<UsageRecord>& fromText) {
    EXPECT_EQ(describe(fromFile), expectedRecords(relative)) << relative;
    EXPECT_EQ(fromFile, fromText) << relative << ": the file and its text in memory differ";
}

}  // namespace usagekit::testing
