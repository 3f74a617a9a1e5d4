#include "shell/pricing_file.h"

#include "core/date.h"
#include "core/pricing.h"
#include "core/store.h"

namespace tally {

namespace {

// JSON has no comments: the loader reads "updated", "source" and "rates" and skips every
// other key, so the explanation and the example live under keys of their own.
std::string exampleFile() {
    const std::string today = usagekit::ISO8601::format(usagekit::Date::now()).substr(0, 10);
    return R"({
  "_comment": [
    "Your own rates, in US dollars per million tokens. Each row under \"rates\" gives a model",
    "a rate, or replaces Tally's built-in one; the key is the model's name as Tally shows it,",
    "in lower case. A row needs all four of input, output, cacheRead and cacheWrite, and one",
    "row that does not read makes Tally ignore the whole file. \"_example\" is not read:",
    "copy its row into \"rates\" and change the name and figures. Tally reads this file at",
    "its next scan."
  ],
  "_example": {
    "my-model-name": { "input": 3.0, "output": 15.0, "cacheRead": 0.3, "cacheWrite": 3.75 }
  },
  "rates": {},
  "source": "my own rates",
  "updated": ")" +
           today + R"("
}
)";
}

}  // namespace

std::filesystem::path ensurePricingFile() {
    const std::filesystem::path path = usagekit::Pricing::file();
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) usagekit::Store::saveData(exampleFile(), path);
    return path;
}

}  // namespace tally
