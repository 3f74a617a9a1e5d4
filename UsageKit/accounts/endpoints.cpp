#include "accounts/endpoints.h"

#include "core/paths.h"

namespace usagekit::Endpoints {

namespace {

std::string host(const char* variable, const char* fallback) {
    std::string base = TallyPaths::environment(variable);
    if (base.empty()) base = fallback;
    while (base.size() > 1 && base.back() == '/')
        base.pop_back();
    return base;
}

}  // namespace

std::string anthropic() {
    return host("TALLY_ENDPOINT_ANTHROPIC", "https://api.anthropic.com");
}
std::string openAI() {
    return host("TALLY_ENDPOINT_OPENAI", "https://api.openai.com");
}
std::string xai() {
    return host("TALLY_ENDPOINT_XAI", "https://management-api.x.ai");
}
std::string openRouter() {
    return host("TALLY_ENDPOINT_OPENROUTER", "https://openrouter.ai");
}
std::string deepSeek() {
    return host("TALLY_ENDPOINT_DEEPSEEK", "https://api.deepseek.com");
}
std::string cursor() {
    return host("TALLY_ENDPOINT_CURSOR", "https://api2.cursor.sh");
}

}  // namespace usagekit::Endpoints
