// Dates and records for tests of what is done with records: a date from its ISO text, and
// one call's worth of a model's tokens that a test then adjusts field by field.
#pragma once

#include "core/date.h"
#include "core/usage_record.h"

#include <stdexcept>
#include <string>

namespace usagekit::testing {

// The instant an ISO 8601 text names; a text that does not parse is a mistake in the test.
inline Date at(const std::string& iso) {
    const auto date = ISO8601::parse(iso);
    if (!date) throw std::invalid_argument("not a date: " + iso);
    return *date;
}

// One call of `input` tokens of `model`, kind "session", whose id is the model's name.
inline UsageRecord record(const Provider& provider, const std::string& model, int64_t input = 1,
                          Date date = at("2026-01-10T10:00:00Z")) {
    UsageRecord r;
    r.id = model;
    r.date = date;
    r.provider = provider;
    r.model = model;
    r.kind = "session";
    r.calls = 1;
    r.input = input;
    return r;
}

}  // namespace usagekit::testing
