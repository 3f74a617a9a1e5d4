// The user's own rates file, "pricing.json" in the support directory. When it is missing,
// ensurePricingFile() writes one the rate loader accepts as it stands: no rates of its own
// yet, and an explanation with an example row under keys the loader skips. An existing
// file is never touched. Any thread.
#pragma once

#include <filesystem>

namespace tally {

// The file's path; throws std::system_error when it was missing and could not be written.
std::filesystem::path ensurePricingFile();

}  // namespace tally
