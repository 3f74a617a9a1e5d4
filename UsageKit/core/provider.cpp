#include "core/provider.h"

#include "core/json_coding.h"
#include "core/text.h"

#include <algorithm>
#include <cctype>

namespace usagekit {

namespace {

struct CatalogueEntry {
    std::string_view id;
    std::string_view name;
};

constexpr CatalogueEntry kCatalogue[] = {
    {"claude-code", "Claude Code"},
    {"grok-cli", "Grok CLI"},
    {"codex-cli", "OpenAI Codex CLI"},
    {"gemini-cli", "Gemini CLI"},
    {"cursor-agent", "Cursor"},
    {"cursor-on-demand", "Cursor on-demand"},
    {"opencode", "OpenCode"},
    {"github-copilot", "GitHub Copilot"},
    {"devin-cli", "Devin"},
    {"antigravity", "Antigravity"},
    {"anthropic-api", "Anthropic API"},
    {"openai-api", "OpenAI API"},
    {"xai-api", "xAI API"},
    {"openrouter", "OpenRouter"},
    {"deepseek", "DeepSeek"},
    {"gumloop", "Gumloop"},
};

// Seats: paid by subscription, so their cost is an API-equivalent value, not money billed.
constexpr std::string_view kSeatProviders[] = {"claude-code",  "grok-cli",      "codex-cli",
                                               "cursor-agent", "devin-cli",     "antigravity",
                                               "gemini-cli",   "github-copilot"};

}  // namespace

std::string Provider::name() const {
    for (const auto& entry : kCatalogue)
        if (entry.id == id) return std::string(entry.name);
    return id;
}

std::string Provider::shortName() const {
    std::string text = Text::firstCharacters(name(), 2);
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool Provider::isMetered() const {
    return std::find(std::begin(kSeatProviders), std::end(kSeatProviders), id) ==
           std::end(kSeatProviders);
}

const std::vector<Provider>& Provider::all() {
    static const std::vector<Provider> providers = [] {
        std::vector<Provider> list;
        for (const auto& entry : kCatalogue)
            list.emplace_back(std::string(entry.id));
        return list;
    }();
    return providers;
}

void Provider::encode(JsonWriter& writer) const {
    writer.beginObject();
    writer.key("id");
    writer.value(id);
    writer.endObject();
}

std::optional<Provider> Provider::decode(const JSON& json) {
    auto identifier = Decode::string(json["id"]);
    if (!identifier) return std::nullopt;
    return Provider(std::move(*identifier));
}

std::optional<Provider> Provider::decode(simdjson::ondemand::value json) {
    std::optional<std::string> id;
    const bool decoded = OnDemandJSON::forEachField(
        json, [&](std::string_view key, simdjson::ondemand::value value) {
            if (key != "id" || id) return true;  // the first "id" counts
            auto text = Decode::OnDemand::string(value);
            if (text) id = std::string(*text);
            return text.has_value();
        });
    if (!decoded || !id) return std::nullopt;
    return Provider(std::move(*id));
}

}  // namespace usagekit
